package platformtest;

@Backing(type="int")
enum Kind {
    PLAIN,
    ODD = 7,
}
