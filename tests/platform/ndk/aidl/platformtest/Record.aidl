package platformtest;

parcelable Record {
    int number = 7;
    String text = "default";
    int[] list;
}
