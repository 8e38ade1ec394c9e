#include "tests/programs/ProgramsTest.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <utility>

#include <gmock/gmock.h>

namespace {

/** A command of a file, and what it has to print. */
struct Command {
    std::string text;
    int code = 0;
    std::vector<std::string> out;
    std::vector<std::string> errors;
    bool isMore = false;  // than these lines

    void run(const std::string& folder) const {
        SCOPED_TRACE(text);
        const Result result = runProgram("/bin/bash", {"-c", "cd " + folder + "; " + text});
        EXPECT_EQ(result.code, code) << result.out << result.errors;
        for (const auto& [lines, came] : {std::pair(out, result.out), {errors, result.errors}}) {
            for (const std::string& line : lines)
                EXPECT_THAT(came, testing::HasSubstr(line));
            const auto count = std::count(came.begin(), came.end(), '\n');
            if (!isMore) EXPECT_EQ(count, static_cast<int64_t>(lines.size())) << came;
        }
    }
};

}  // namespace

void ProgramsTest::SetUp() {
    std::string name = std::filesystem::temp_directory_path() / "programs-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    mFolder = name;
    setenv("BINDER_RUNTIME_DIR", (mFolder / "binder").c_str(), 1);
    static const std::string path = programFolder() + ":" + std::getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    setenv("LIB", libraryFolder().c_str(), 1);
    setenv("SOURCE", SOURCE_FOLDER, 1);
    setenv("SMALL", SOURCE_FOLDER "/testdata/recordings/small.jsonl", 1);
}

void ProgramsTest::TearDown() {
    std::filesystem::remove_all(mFolder);
}

std::unique_ptr<Program> ProgramsTest::startHost(const Arguments& arguments) {
    auto host = std::make_unique<Program>("velahost", arguments);
    const auto line = host->readLine();
    if (line == "velahost: serving vendor.lumenforge.hardware.display.IVela/default") return host;
    ADD_FAILURE() << "no ready line but '" << line.value_or("") << "', " << host->errors();
    return nullptr;
}

std::unique_ptr<Program> ProgramsTest::startMonitor(Arguments options) {
    options.insert(options.begin(), "monitor");
    auto monitor = std::make_unique<Program>("velactl", options);
    const Json line = nextJson(monitor.get());
    if (line.is_object() && line.value("event", "") == "registered") return monitor;
    ADD_FAILURE() << "not registered: " << line << monitor->errors();
    return nullptr;
}

ProgramsTest::Json ProgramsTest::answer(const Arguments& arguments) {
    const Result result = velactl(arguments);
    EXPECT_EQ(result.code, 0) << result.errors;
    return Json::parse(result.out, nullptr, false);
}

ProgramsTest::Json ProgramsTest::nextJson(Program* program) {
    return Json::parse(program->readLine().value_or(""), nullptr, false);
}

void ProgramsTest::runCommands(const std::string& name) const {
    std::ifstream in(SOURCE_FOLDER "/testdata/commands/" + name);
    std::vector<Command> commands;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        if (std::isdigit(static_cast<unsigned char>(line[0])) != 0) {
            commands.push_back({.text = line.substr(2), .code = line[0] - '0'});
            continue;
        }
        ASSERT_FALSE(commands.empty());
        Command& command = commands.back();
        (line[2] == '>' ? command.out : command.errors)
                .push_back(line.substr(line.find(' ', 2) + 1));
        command.isMore = command.isMore || line[3] == '*';
    }
    EXPECT_FALSE(commands.empty()) << name;
    for (const Command& command : commands)
        command.run(mFolder);
}

int ProgramsTest::stop(Program* program, int signal) {
    program->sendSignal(signal);
    return program->wait();
}
