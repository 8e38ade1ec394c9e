#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/programs/Program.h"

/** The programs in a runtime folder of the test's own. */
class ProgramsTest : public testing::Test {
  protected:
    using Arguments = std::vector<std::string>;
    using Json = nlohmann::json;

    void SetUp() override;
    void TearDown() override;

    /** A host that has published its service; null, with a failure, when that did not happen. */
    static std::unique_ptr<Program> startHost(const Arguments& arguments = {});

    /** A monitor that has registered; null, with a failure, when it has not. */
    static std::unique_ptr<Program> startMonitor(Arguments options = {});

    static Result velactl(const Arguments& arguments, const std::string& input = "") {
        return runProgram("velactl", arguments, input);
    }

    /** The answer of a command that must succeed. */
    static Json answer(const Arguments& arguments);

    /** Runs a batch of the simulated chip's language; the chip's reply. */
    static std::string batch(const std::string& text) {
        return answer({"vela", "velaConfigureBatch", "0", Json(text).dump()});
    }

    /** The next line that the program prints; discarded JSON when there is none. */
    static Json nextJson(Program* program);

    /** Runs the commands of a file of testdata/commands, one after the other, in the folder. */
    void runCommands(const std::string& name) const;

    /** Sends the signal and returns the exit code. */
    static int stop(Program* program, int signal);

    std::filesystem::path mFolder;
};
