#include <cstdio>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "vts/Clients.h"
#include "vts/Operation.h"

namespace vts {
namespace {

using Operations = std::map<std::string, Operation>;
using V = IVela;
using C = IVelaComposerClient;

const Form kDone{.works = "ok", .refused = "", .absent = "unknown"};
const Form kZero{.works = "ok 0", .refused = "", .absent = "-1"};
const Form kCode{.works = "ok", .refused = "ok -", .absent = "-1"};
const Form kResult{.works = "ok", .refused = "-", .absent = "-1"};
const Form kCodeFirst{.works = "ok", .refused = "ok { -", .absent = "ok { -1 }"};
const Form kShown{.works = "ok 1", .refused = "ok 0", .absent = "ok 1"};
const Form kNowhere{.works = "unknown", .refused = "", .absent = "unknown"};
const Form kElsewhere{.works = "-2", .refused = "", .absent = "-2"};

constexpr int32_t kRegister = 2;
constexpr int64_t kDisplay = 0;
constexpr int64_t kLayer = 0;
const display::LayerStack kStack{.layers = {{}}, .list1 = {}};
const display::DisplayConfigVariableInfo kMode{
        .value1 = 1080, .value2 = 2400, .value4 = 3, .list1 = {}};

/** "ok" and what the service writes. */
std::string dump(const Service& service) {
    std::FILE* const file = std::tmpfile();
    const auto binder = std::get<0>(service)->asBinder();
    EXPECT_EQ(STATUS_OK, AIBinder_dump(binder.get(), fileno(file), nullptr, 0));
    std::rewind(file);
    std::string answer = "ok ";
    for (int c = 0; (c = std::fgetc(file)) != EOF;)
        answer += static_cast<char>(c);
    std::fclose(file);
    return answer;
}

/** A client's process registers and is killed; the status of its registration. */
Call death(Kind kind) {
    return [kind](const Service& service) {
        ClientProcess client(std::get<2>(service), kind, kId);
        return client.hear();
    };
}

/** The operations that only composer clients serve, of both interfaces. */
Operations shared() {
    const display::HwcRect whole{.right = 1080, .bottom = 2400};
    const std::vector<float> identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    Operations all;
    const auto add = [&](const std::string& name, auto main, auto composer, const Form& form,
                         const auto&... ordinary) {
        all["IVela_" + name] = operation(main, kElsewhere, ordinary...);
        all["IVelaComposerClient_" + name] = operation(composer, form, ordinary...);
    };
    add("buildLayerStack", &V::buildLayerStack, &C::buildLayerStack, kDone, kDisplay, kStack);
    add("changeLayerType", &V::changeLayerType, &C::changeLayerType, kDone, kLayer, 1);
    add("commitLayerStack", &V::commitLayerStack, &C::commitLayerStack, kCode, kDisplay, 1);
    add("configureVelaMaxcll", &V::configureVelaMaxcll, &C::configureVelaMaxcll, kCode, 1000);
    add("createLayer", &V::createLayer, &C::createLayer, kDone);
    add("destroyLayer", &V::destroyLayer, &C::destroyLayer, kDone);
    add("enableSecondaryDisplay", &V::enableSecondaryDisplay, &C::enableSecondaryDisplay, kDone);
    add("getCurrentConfig", &V::getCurrentConfig, &C::getCurrentConfig, kResult);
    add("getDumpString", &V::getDumpString, &C::getDumpString, kDone);
    add("getLayerToneMappingLut", &V::getLayerToneMappingLut, &C::getLayerToneMappingLut, kResult);
    add("getOsdStatus", &V::getOsdStatus, &C::getOsdStatus, kCode);
    add("handleDisplayEvent", &V::handleDisplayEvent, &C::handleDisplayEvent, kCode, kDisplay, 0,
        1);
    add("present", &V::present, &C::present, kShown);
    add("presentDisplay", &V::presentDisplay, &C::presentDisplay, kCode);
    add("reportDualChannelStatus", &V::reportDualChannelStatus, &C::reportDualChannelStatus, kDone);
    add("setActiveConfig", &V::setActiveConfig, &C::setActiveConfig, kDone, kDisplay, kMode);
    add("setClientTarget", &V::setClientTarget, &C::setClientTarget, kDone, kDisplay, 1);
    add("setColorModeWithRenderIntent", &V::setColorModeWithRenderIntent,
        &C::setColorModeWithRenderIntent, kCode, kDisplay, 7, 1);
    add("setDisplayConnected", &V::setDisplayConnected, &C::setDisplayConnected, kDone, 3, true);
    add("setLayerBuffer", &V::setLayerBuffer, &C::setLayerBuffer, kDone);
    add("setLayerCompositionType", &V::setLayerCompositionType, &C::setLayerCompositionType, kDone,
        kDisplay, kLayer, 2);
    add("setLayerDisplayFrame", &V::setLayerDisplayFrame, &C::setLayerDisplayFrame, kDone, kDisplay,
        kLayer, whole);
    add("setLayerProperty", &V::setLayerProperty, &C::setLayerProperty, kDone, kDisplay, 1, 2);
    add("setLayerSetEmpty", &V::setLayerSetEmpty, &C::setLayerSetEmpty, kDone);
    add("setLayerSourceCrop", &V::setLayerSourceCrop, &C::setLayerSourceCrop, kDone, kDisplay,
        kLayer, whole);
    add("setLayerTransform", &V::setLayerTransform, &C::setLayerTransform, kDone);
    add("setLayerZOrder", &V::setLayerZOrder, &C::setLayerZOrder, kDone, kDisplay, kLayer, 1);
    add("setOsdAutoRefresh", &V::setOsdAutoRefresh, &C::setOsdAutoRefresh, kCode, 1);
    add("setPowerMode", &V::setPowerMode, &C::setPowerMode, kZero, kDisplay, 2);
    add("updateDisplayBrightness", &V::updateDisplayBrightness, &C::updateDisplayBrightness,
        kCodeFirst, kDisplay, 512);
    add("setColorTransform", &V::setColorTransform, &C::setColorTransform, kCode, identity);
    add("configureVelaHdrMode", &V::configureVelaHdrMode, &C::configureVelaHdrMode, kNowhere, 1);
    return all;
}

Operations all() {
    constexpr auto kType = static_cast<display::VendorConfig>(kRegister);
    const File file{"/proc/self/exe"};
    const Values values{4, 5};
    const std::vector<uint8_t> none;
    const Form version{.works = "ok 2", .refused = "", .absent = "ok 2"};
    const Form hash{.works = "ok \"" + V::hash + '"', .refused = "", .absent = "ok"};
    const Form text{
            .works = "ok", .refused = "", .absent = "ok Vela service library loaded failed"};
    const std::tuple<const char*, Kind, Operation> registrations[] = {
            {"IVela_registerCallback", Kind::kCallback,
             operation(&V::registerCallback, kDone, kId, SharedRefBase::make<Callback>(ignore))},
            {"IVela_registerSoftVelaClient", Kind::kSoftClient,
             operation(&V::registerSoftVelaClient, kDone, kId,
                       SharedRefBase::make<SoftClient>(ignore))},
            {"IVelaComposerClient_registerCallback", Kind::kCompositor,
             operation(&C::registerCallback, kDone, SharedRefBase::make<Compositor>(ignore))},
    };
    Operations all = shared();
    for (auto [name, kind, operation] : registrations) {
        const Call next = operation.calls["works"][0];
        operation.calls["death"] = {death(kind), next, death(kind), next};
        all[name] = operation;
    }
    const auto add = [&](const char* name, auto... row) { all[name] = operation(row...); };
    add("IVela_velaConfigureSet", &V::velaConfigureSet, kCode, kRegister, values);
    add("IVela_velaConfigureGet", &V::velaConfigureGet, kResult, kRegister);
    add("IVela_velaConfigureBatch", &V::velaConfigureBatch, kResult, kRegister);
    add("IVela_velaConfigureBuffer", &V::velaConfigureBuffer, kCode, kRegister, 0, file, 16);
    add("IVela_initialize", &V::initialize, kDone, kMode);
    add("IVela_panelReadWrite", &V::panelReadWrite, kResult, false, 0, 0, false, none, 1);
    add("IVela_createComposerClient", &V::createComposerClient, kDone);
    add("IVela_getInterfaceVersion", &V::getInterfaceVersion, version);
    add("IVela_getInterfaceHash", &V::getInterfaceHash, hash);
    all["IVela_dump"] = {.form = text, .calls = {{"works", {dump}}, {"absent", {dump}}}};
    add("IVelaComposerClient_configureValuesRead", &C::configureValues, kResult, kType);
    add("IVelaComposerClient_configureValuesWritten", &C::configureValues, kResult, kType, values);
    add("IVelaComposerClient_configureBatch", &C::configureBatch, kResult, kType);
    add("IVelaComposerClient_configureBuffer", &C::configureBuffer, kResult, kType, 0, file, 16);
    add("IVelaComposerClient_setFrameBufferResolution", &C::setFrameBufferResolution, kDone,
        kDisplay, 1080, 2400);
    add("IVelaComposerClient_setPanelName", &C::setPanelName, kDone, kDisplay, "panel");
    add("IVelaComposerClient_getInterfaceVersion", &C::getInterfaceVersion, version);
    add("IVelaComposerClient_getInterfaceHash", &C::getInterfaceHash, hash);
    return all;
}

/** Never destroyed: it holds callbacks that the service may still call. */
const Operations& operations() {
    static const auto& instance = *new Operations(all());
    return instance;
}

/** The operations and the conditions in which a client may find them; extremes come last. */
std::vector<std::string> operationsAndConditions() {
    std::vector<std::string> names;
    for (const char* condition : {"works", "absent", "null", "death", "refused", "extreme"}) {
        for (const auto& [name, operation] : operations()) {
            if (operation.calls.contains(condition)) names.push_back(name + '_' + condition);
        }
    }
    return names;
}

/** Begins an answer with these words. */
bool begins(const std::string& answer, const std::string& words) {
    return (answer + ' ').starts_with(words + ' ');
}

class OperationsTest : public ServiceTest {
  protected:
    /** On a layer that is shown. Whether the chip goes along is seen by the operations. */
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ServiceTest::SetUp());
        if (isAbsent()) return;
        (void)ask(vela(), &V::velaConfigureSet, kRegister, Values{4, 5});
        (void)ask(composer(), &C::createLayer, kDisplay, kLayer);
        (void)ask(composer(), &C::buildLayerStack, kDisplay, kStack);
        (void)ask(composer(), &C::commitLayerStack, kDisplay, 1);
    }
};

TEST_P(OperationsTest, AnswersAsDocumented) {
    const size_t cut = subject().rfind('_');
    const std::string condition = subject().substr(cut + 1);
    const auto& [form, calls] = operations().at(subject().substr(0, cut));
    const bool isForMany = condition == "null" || condition == "extreme";
    if (isAbsent() && (subject().starts_with("IVelaC") || !(isForMany || condition == "absent"))) {
        GTEST_SKIP() << "the service library is absent";
    }
    if (!isAbsent() && condition == "absent") GTEST_SKIP() << "the service library is there";

    bool isRefused = false;
    for (const Call& call : calls.at(condition)) {
        const std::string answer = call(service);
        // A descriptor must be one, which the platform sees to.
        if (condition == "null" && answer.find("UNEXPECTED_NULL") != std::string::npos) continue;
        const bool isRefusal = !form.refused.empty() && answer.starts_with(form.refused);
        EXPECT_TRUE(isAbsent() ? begins(answer, form.absent)
                               : isRefusal || begins(answer, form.works))
                << answer << "\nto call " << &call - calls.at(condition).data();
        isRefused |= isRefusal;
    }
    if (condition == "works" && isRefused) GTEST_SKIP() << "the chip refuses it";
    if (condition == "refused" && !isRefused) GTEST_SKIP() << "the chip refuses nothing tried";
}

INSTANTIATE_TEST_SUITE_P(Conformance, OperationsTest,
                         testing::Combine(testing::ValuesIn(instances()),
                                          testing::ValuesIn(operationsAndConditions())),
                         OperationsTest::name);

}  // namespace
}  // namespace vts
