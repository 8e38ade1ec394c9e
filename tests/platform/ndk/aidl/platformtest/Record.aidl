package platformtest;

@VintfStability
parcelable Record {
    int number = 7;
    String text = "default";
    int[] list;
}
