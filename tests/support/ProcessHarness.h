#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/types.h>
#include <unistd.h>

/**
 * Tests across real processes: the test program starts itself again in another role and talks to it
 * by lines of text.
 *
 *     const harness::Role kServer("server", [](harness::Parent& parent) {
 *         ...
 *         parent.say("ready");
 *         parent.untilGone();
 *     });
 *
 *     TEST(Server, Answers) {
 *         harness::Child server("server");
 *         ASSERT_EQ(server.hear(), "ready");
 *         ...
 *     }
 *
 *     int main(int argc, char** argv) { return harness::run(argc, argv); }
 *
 * The program gets a runtime folder of its own, which its roles share and which is removed at the
 * end. Nothing here uses binder. A child that is left over is killed when its Child, or the test
 * program, goes.
 */
namespace harness {

/** To be called by main(): plays the role that the command line names, else runs the tests. */
int run(int argc, char** argv);

/**
 * The number given as `--count=N` on the command line, for tests whose length depends on the build.
 */
int countOr(int fallback);

/** The folder in which the program and its roles find each other. */
const std::filesystem::path& runtimeFolder();

/** Descriptors that a process has open. */
size_t openDescriptors(pid_t pid = getpid());

/** Waits until the condition holds, yielding; false after half a minute. */
template <typename Condition>
bool eventually(Condition&& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

/** What a role talks to: the test that started it. */
class Parent {
  public:
    explicit Parent(std::vector<std::string> arguments) : arguments(std::move(arguments)) {}

    const std::vector<std::string> arguments;

    void say(std::string_view line);
    /** The next line, or nothing when the parent is gone. Waits. */
    std::optional<std::string> hear();
    /** Waits until the parent closes the conversation. */
    void untilGone();
};

/** A role, named for the life of the program: define one at namespace scope. */
class Role {
  public:
    Role(const char* name, std::function<void(Parent&)> body);
};

/** A process in another role, as its test sees it. For one thread at a time. */
class Child {
  public:
    explicit Child(const std::string& role, const std::vector<std::string>& arguments = {});
    ~Child();
    Child(Child&& other) noexcept;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return mPid; }

    void say(std::string_view line);
    /** The next line; "(nothing)" when the child ends or stays silent for half a minute. */
    std::string hear();

    void signal(int number);
    /** Kills the child and waits until it is gone. */
    void kill();
    /**
     * Closes the conversation and waits; the exit code, or minus the signal that ended the child.
     */
    int finish();

  private:
    int await();

    pid_t mPid = -1;
    int mIn = -1;
    int mOut = -1;
    std::string mHeard;
};

}  // namespace harness
