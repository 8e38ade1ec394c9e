#include "host/chip/ChipObserver.h"

#include <cstdint>
#include <utility>

#include "host/chip/Chip.h"
#include "host/chip/Observed.h"
#include "host/codec/Names.h"

namespace lmfg {
namespace {

thread_local std::shared_ptr<const ChipCall> gRequest;
thread_local std::shared_ptr<const ChipCall> gCause;

std::function<void(const std::string& why)>& refusalListener() {
    static auto& listener = *new std::function<void(const std::string& why)>;
    return listener;
}

std::shared_ptr<const ChipCall> share(std::shared_ptr<const ChipObservers> observers,
                                      ChipCall call) {
    return {new ChipCall(std::move(call)), [observers = std::move(observers)](const ChipCall* it) {
                for (const auto& observer : *observers)
                    observer->settled(*it);
                delete it;
            }};
}

template <typename T>
inline constexpr ChipAnswer kAnswerOf =
        std::is_constructible_v<T, int32_t> ? ChipAnswer::kResult : ChipAnswer::kNone;
template <typename V>
inline constexpr ChipAnswer kAnswerOf<std::function<void(int32_t, const V&)>> =
        ChipAnswer::kResultFunction;
template <>
inline constexpr ChipAnswer kAnswerOf<Chip::DumpResult> = ChipAnswer::kTextFunction;

template <typename R, typename... P>
ChipOperation operation(const char* name, R (Chip::* /*method*/)(P...)) {
    ChipAnswer answer = kAnswerOf<R>;
    ((answer = kIsFunction<P> ? kAnswerOf<P> : answer), ...);
    return {name, answer};
}

}  // namespace

ChipObserver::~ChipObserver() = default;

CausedBy::CausedBy(std::shared_ptr<const ChipCall> request) {
    gCause = std::move(request);
}

CausedBy::~CausedBy() {
    gCause = nullptr;
}

const std::shared_ptr<const ChipCall>& CausedBy::current() {
    return gCause;
}

const std::shared_ptr<const ChipCall>& CausedBy::currentRequest() {
    return gRequest;
}

void tellRefusal(const std::string& why) {
    if (refusalListener()) refusalListener()(why);
}

void hearRefusals(std::function<void(const std::string& why)> listener) {
    refusalListener() = std::move(listener);
}

void ObserverSwitch::set(ChipObservers observers) {
    const std::lock_guard guard(mLock);
    mIsObserved = !observers.empty();
    mObservers = observers.empty() ? nullptr
                                   : std::make_shared<const ChipObservers>(std::move(observers));
}

std::shared_ptr<const ChipObservers> ObserverSwitch::get() const {
    if (!mIsObserved) return nullptr;
    const std::lock_guard guard(mLock);
    return mObservers;
}

ObservedCall::ObservedCall(std::shared_ptr<const ChipObservers> observers, ChipCall call)
    : mObservers(std::move(observers)), mCall(share(mObservers, std::move(call))) {
    if (!mCall->isEvent) mOuter = std::exchange(gRequest, mCall);
    for (const auto& observer : *mObservers)
        observer->began(*mCall);
}

ObservedCall::~ObservedCall() {
    if (mHasResult) {
        mAnswer = mResults.size() == 1 ? mResults.front() : codec::Json{{"answers", mResults}};
    }
    for (const auto& observer : *mObservers)
        observer->ended(*mCall, mAnswer);
    if (!mCall->isEvent) gRequest = std::move(mOuter);
}

ChipFault ObservedCall::fault() {
    for (const auto& observer : *mObservers) {
        const auto fault = observer->fault(*mCall);
        if (!fault) continue;
        if (fault->status && *fault->status < 0) {
            tellRefusal(codec::errorName(-int64_t{*fault->status}) + ": by a fault");
        }
        return *fault;
    }
    return {};
}

const std::vector<ChipOperation>& chipOperations() {
    static const auto& operations = *new std::vector<ChipOperation>{
            operation("initialize", &Chip::initialize),
            operation("initSoftVela", &Chip::initSoftVela),
            operation("velaConfigureGet", &Chip::velaConfigureGet),
            operation("velaConfigureSet", &Chip::velaConfigureSet),
            operation("velaConfigureBatch", &Chip::velaConfigureBatch),
            operation("velaConfigureBuffer", &Chip::velaConfigureBuffer),
            operation("panelReadWrite", &Chip::panelReadWrite),
            operation("getDumpString", &Chip::getDumpString),
            operation("getCurrentConfig", &Chip::getCurrentConfig),
            operation("getLayerToneMappingLut", &Chip::getLayerToneMappingLut),
            operation("updateDisplayBrightness", &Chip::updateDisplayBrightness),
            operation("GetOsdState", &Chip::GetOsdState),
            operation("GetOsdOverFlow", &Chip::GetOsdOverFlow),
            operation("buildLayerStack", &Chip::buildLayerStack),
            operation("CommitLayerStack", &Chip::CommitLayerStack),
            operation("Present", &Chip::Present),
            operation("Present2nd", &Chip::Present2nd),
            operation("PresentDisplay", &Chip::PresentDisplay),
            operation("CreateLayer", &Chip::CreateLayer),
            operation("DestroyLayer", &Chip::DestroyLayer),
            operation("ChangeLayerType", &Chip::ChangeLayerType),
            operation("SetLayerCompositionType", &Chip::SetLayerCompositionType),
            operation("SetLayerTransform", &Chip::SetLayerTransform),
            operation("SetLayerZOrder", &Chip::SetLayerZOrder),
            operation("SetLayerDisplayFrame", &Chip::SetLayerDisplayFrame),
            operation("SetLayerSourceCrop", &Chip::SetLayerSourceCrop),
            operation("setLayerBuffer", &Chip::setLayerBuffer),
            operation("setLayerProperty", &Chip::setLayerProperty),
            operation("SetLayerSetEmpty", &Chip::SetLayerSetEmpty),
            operation("setActiveConfig", &Chip::setActiveConfig),
            operation("SetPowerMode", &Chip::SetPowerMode),
            operation("SetColorModeWithRenderIntent", &Chip::SetColorModeWithRenderIntent),
            operation("SetColorTransform", &Chip::SetColorTransform),
            operation("configureVelaMaxcll", &Chip::configureVelaMaxcll),
            operation("handleDisplayEvent", &Chip::handleDisplayEvent),
            operation("setOsdAutoRefresh", &Chip::setOsdAutoRefresh),
            operation("SetClientTarget", &Chip::SetClientTarget),
            operation("reportDualChannelStatus", &Chip::reportDualChannelStatus),
            operation("enableSecondaryDisplay", &Chip::enableSecondaryDisplay),
            operation("SetPluggableDisplayConnected", &Chip::SetPluggableDisplayConnected),
            operation("SetVirtualDisplayConnected", &Chip::SetVirtualDisplayConnected),
            operation("setFrameBufferResolution", &Chip::setFrameBufferResolution),
            operation("setPanelName", &Chip::setPanelName),
    };
    return operations;
}

}  // namespace lmfg
