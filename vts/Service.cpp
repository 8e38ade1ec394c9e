#include "vts/Service.h"

#include <algorithm>
#include <cctype>

#include <android/binder_manager.h>
#include <android/binder_process.h>

#include "vts/Clients.h"

namespace vts {

Service connect(const std::string& instance, bool asCompositor) {
    ABinderProcess_startThreadPool();
    const std::string name = std::string(IVela::descriptor) + '/' + instance;
    const ndk::SpAIBinder binder(AServiceManager_isDeclared(name.c_str())
                                         ? AServiceManager_waitForService(name.c_str())
                                         : AServiceManager_checkService(name.c_str()));
    Service service{IVela::fromBinder(binder), nullptr, instance};
    const auto& vela = std::get<0>(service);
    auto& composer = std::get<1>(service);
    if (vela == nullptr || !asCompositor) return service;
    const std::string status = told(vela->createComposerClient(&composer));
    EXPECT_EQ(status, composer == nullptr ? "unknown" : "ok");
    return service;
}

std::vector<std::string> instances() {
    std::vector<std::string> found;
    AServiceManager_forEachDeclaredInstance(
            IVela::descriptor, &found, [](const char* instance, void* context) {
                static_cast<std::vector<std::string>*>(context)->emplace_back(instance);
            });
    return found.empty() ? std::vector<std::string>{"default"} : found;
}

std::string ServiceTest::name(const testing::TestParamInfo<ParamType>& info) {
    std::string name = std::get<0>(info.param) + '_' + std::get<1>(info.param);
    std::ranges::replace_if(
            name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

void ServiceTest::SetUp() {
    service = connect(instance());
    ASSERT_NE(std::get<0>(service), nullptr) << instance() << " is not published";
}

void ServiceTest::TearDown() {
    if (std::get<0>(service) == nullptr) return;
    for (const Kind kind : {Kind::kCallback, Kind::kSoftClient}) {
        for (const int64_t id : kIdentifiers)
            EXPECT_EQ(isAbsent() ? "unknown" : "ok", enroll(service, kind, id, nullptr));
    }
    EXPECT_EQ(STATUS_OK, AIBinder_ping(vela().asBinder().get()));
}

}  // namespace vts
