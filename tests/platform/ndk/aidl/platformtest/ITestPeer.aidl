package platformtest;

/** An object of a test process that does what tests ask of it. */
interface ITestPeer {
    /** The bytes as far as they go, and zeros. */
    byte[] resize(in byte[] bytes, int size);
    ParcelFileDescriptor[] echoDescriptors(in ParcelFileDescriptor[] descriptors);

    /** True when the binder is the object itself. */
    boolean isYou(IBinder binder);
    IBinder echoBinder(IBinder binder);
    @nullable ITestPeer echoPeer(@nullable ITestPeer peer);
    ITestPeer create();
    void keep(@nullable ITestPeer peer);
    @nullable ITestPeer kept();
    /** Calls the object that is kept; fails as that does. */
    void callKept();

    /** Calls the other one's descend(depth - 1) until 0; the number of calls. */
    int descend(ITestPeer other, int depth);
    /** Has the first of the others relay() to the rest; the process that called the last one. */
    int[] relay(in ITestPeer[] others);
    /** True when descend() or relay() was last served by the thread that had called into the peer. */
    boolean cameBackOnSameThread();
    /** Returns when so many callers are in here. */
    void meet(int callers);

    oneway void post(int number);
    /** Holds up the one-way calls to this object. */
    oneway void holdPosts();
    void releasePosts();
    /** The numbers posted so far, once there are so many. */
    int[] awaitPosts(int count);
    /**
     * Keeps the peer, posts the caller's process plus how many bytes and descriptors there are, and
     * fails.
     */
    oneway void postMuch(in byte[] bytes, in ParcelFileDescriptor[] descriptors,
            @nullable ITestPeer peer);

    /** Posts to all objects of the process, those that are gone included. */
    int totalPosts();

    /** Its process and its user. */
    int[] caller();

    /** Objects of this interface that the process has, this one included. */
    int liveObjects();
}
