package platformtest;

import platformtest.Sample;

/** An object of a test process that does what tests ask of it. */
@VintfStability
interface ITestPeer {
    Sample echo(in Sample sample, out Sample copy, inout int[] numbers);
    ParcelFileDescriptor echoDescriptor(in ParcelFileDescriptor descriptor);
    ParcelFileDescriptor[] echoDescriptors(in ParcelFileDescriptor[] descriptors);
    byte[] bytes(int size);
    int swallow(in byte[] bytes);

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
    /** True when descend() was last served by the thread that had called into the peer. */
    boolean cameBackOnSameThread();
    /** Returns when so many callers are in here. */
    void meet(int callers);
    /** Posts, so that its beginning can be awaited, and does not return. */
    void hang();

    oneway void post(int number);
    /** Holds up the one-way calls to this object. */
    oneway void holdPosts();
    void releasePosts();
    /** The numbers posted so far, once there are so many. */
    int[] awaitPosts(int count);
    oneway void postBytes(in byte[] bytes);
    /** Posts how many there are. */
    oneway void postDescriptors(in ParcelFileDescriptor[] descriptors);
    oneway void postFailure();
    oneway void postPeer(ITestPeer peer);

    /** Posts to all objects of the process, those that are gone included. */
    int totalPosts();

    int callingPid();
    int callingUid();
    oneway void noteCallingPid();
    int notedPid();

    /** Objects of this interface that the process has, this one included. */
    int liveObjects();
    int openDescriptors();
    /** Lines that the process has logged, and bytes that it has allocated. */
    int logLines();
    long heapBytes();
}
