#pragma once

#include <istream>
#include <memory>
#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>

namespace velactl {

/**
 * One client of the service. It connects at the first operation that needs it and keeps its
 * composer client, once made, until it ends. One thread.
 */
class Session {
  public:
    /**
     * Runs an operation of "vela" or "composer". words: its name, then its arguments as JSON.
     * Prints one line of JSON on stdout, and an error in words on stderr too. Returns the exit
     * code.
     */
    int run(const std::string& interface, const std::vector<std::string>& words);

    /**
     * Runs the commands of a file, one a line: "vela|composer OPERATION [JSON...]". Empty lines and
     * those that begin with # are skipped. Stops at the first failure unless keepGoing. Returns the
     * first failure's exit code, else kOk.
     */
    int runAll(std::istream& lines, bool keepGoing);

  private:
    int runLine(const std::string& line);
    /** Both return an exit code: kOk when the member is there afterwards. */
    int needVela();
    int needComposer();

    std::shared_ptr<aidl::vendor::lumenforge::hardware::display::IVela> mVela;
    std::shared_ptr<aidl::vendor::lumenforge::hardware::display::IVelaComposerClient> mComposer;
};

}  // namespace velactl
