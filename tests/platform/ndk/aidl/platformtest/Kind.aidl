package platformtest;

@VintfStability
@Backing(type="int")
enum Kind {
    PLAIN,
    ODD = 7,
}
