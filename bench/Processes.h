#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace bench {

/** Ends the program with the message unless all is well. */
void check(bool ok, const char* what);

/** The processors that this process may use. */
std::vector<int> processors();
/** Keeps this thread, and those that it starts from now on, on one processor. */
void runOn(int processor);

/** Has the program's processes meet in a folder of their own, which goes with this object. */
class RuntimeFolder {
  public:
    RuntimeFolder();
    ~RuntimeFolder();
    RuntimeFolder(const RuntimeFolder&) = delete;
    RuntimeFolder& operator=(const RuntimeFolder&) = delete;

  private:
    std::string mPath;
};

/** One end of a stream socket to another process; ends the program when that has gone. */
class Channel {
  public:
    explicit Channel(int socket) : mSocket(socket) {}

    int socket() const { return mSocket; }
    void send(const void* bytes, size_t size) const;
    void receive(void* bytes, size_t size) const;

    void tell(char word) const { send(&word, sizeof(word)); }
    char hear() const {
        char word = 0;
        receive(&word, sizeof(word));
        return word;
    }
    /** Sends a word and waits for one. */
    char ask(char word) const {
        tell(word);
        return hear();
    }

  private:
    int mSocket;
};

/**
 * A process of the program's own, killed with this object. To be made before the program uses
 * binder, which does not go through a fork.
 */
class Child {
  public:
    explicit Child(const std::function<void(Channel)>& body);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    const Channel& channel() const { return mChannel; }
    pid_t pid() const { return mPid; }

  private:
    Channel mChannel{-1};
    pid_t mPid = -1;
};

/** The bytes of one exchange, there and back, at the beginning of what goes there. */
struct EchoSizes {
    uint32_t request;  // these included
    uint32_t reply;
};

/** Serves exchanges until the other side has gone: as few system calls as a socket needs. */
void serveEcho(Channel channel);
/** Has one exchange; the buffer holds the larger of the two sizes. */
void exchangeEcho(const Channel& channel, EchoSizes sizes, std::vector<char>* buffer);

}  // namespace bench
