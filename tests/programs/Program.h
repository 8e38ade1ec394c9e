#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

/** A program of this build, running with its stdout and stderr caught. One thread. */
class Program {
  public:
    /** Starts a path, or the program of that name beside this test; aborts when it cannot. */
    Program(const std::string& name, const std::vector<std::string>& arguments,
            const std::string& input = "");
    /** Kills the program if it still runs. */
    ~Program();

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /** The next line of stdout; none when it ended, or when none came for half a minute. */
    std::optional<std::string> readLine();

    void sendSignal(int signal) const;

    [[nodiscard]] pid_t pid() const { return mPid; }

    /** Waits for the end; the exit code, or minus the signal that killed it. */
    int wait();

    /** All of stdout that readLine has not taken; reads until it ends. */
    std::string readRest();

    /** What has come on stderr so far. */
    [[nodiscard]] std::string errors() const;

  private:
    pid_t mPid = -1;
    int mOut = -1;
    int mErrors = -1;
    std::string mBuffer;
    std::optional<int> mCode;
};

/** What a program that ended by itself left. */
struct Result {
    int code = 0;
    std::string out;
    std::string errors;
};

Result runProgram(const std::string& name, const std::vector<std::string>& arguments,
                  const std::string& input = "");

/** The folder of this build that holds the programs, or its neighbour "lib". */
std::string programFolder();
std::string libraryFolder();
