package platformtest;

import platformtest.Kind;

/** One field of each type. */
@VintfStability
parcelable Sample {
    boolean flag;
    byte small;
    char letter;
    int number;
    long large;
    float single;
    double wide;
    Kind kind = Kind.PLAIN;
    String text;
    @nullable String maybe;
    boolean[] flags;
    byte[] bytes;
    char[] letters;
    int[] numbers;
    long[] larges;
    float[] singles;
    double[] wides;
    Kind[] kinds;
    String[] texts;
    @nullable int[] maybeNumbers;
    @nullable Sample[] nested;
    int[2][3] grid;
    List<String> list;
}
