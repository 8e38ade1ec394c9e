#include "tests/programs/ProgramsTest.h"

#include <cstdlib>

void ProgramsTest::SetUp() {
    std::string name = std::filesystem::temp_directory_path() / "programs-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    mFolder = name;
    setenv("BINDER_RUNTIME_DIR", (mFolder / "binder").c_str(), 1);
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

int ProgramsTest::stop(Program* program, int signal) {
    program->sendSignal(signal);
    return program->wait();
}
