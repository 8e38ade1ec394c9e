#include "support/DeathLink.h"

#include "service/VelaDefault.h"
#include "tests/support/ChipTest.h"
#include "tests/support/DeathSpy.h"

namespace lmfg::support {
namespace {

namespace display = vts::display;
using testing::ElementsAre;
using testing::IsEmpty;
using vela::test::DeathSpy;
using vela::test::debugLine;
using vela::test::LogLine;
using vela::test::told;
using vts::Kind;
using Client = std::shared_ptr<ndk::ICInterface>;

/** Registrations of each kind of client, under one identifier where there is one. */
class DeathLinkTest : public vela::test::ChipTest, public testing::WithParamInterface<Kind> {
  protected:
    DeathLinkTest() { EXPECT_EQ("ok", told(mService->createComposerClient(&mComposer))); }
    ~DeathLinkTest() override {
        mComposer.reset();
        mService.reset();
    }

    Client client(const std::string& name) {
        if (GetParam() == Kind::kCallback) return make<vts::Callback>(hear(name));
        if (GetParam() == Kind::kSoftClient) return make<vts::SoftClient>(hear(name));
        return make<vts::Compositor>(hear(name));
    }
    void add(const Client& it) {
        using std::static_pointer_cast;
        if (GetParam() == Kind::kCallback) {
            const auto callback = static_pointer_cast<display::IVelaCallback>(it);
            EXPECT_EQ("ok", told(mService->registerCallback(-16, callback)));
        } else if (GetParam() == Kind::kSoftClient) {
            const auto soft = static_pointer_cast<display::ISoftVelaClient>(it);
            EXPECT_EQ("ok", told(mService->registerSoftVelaClient(-16, soft)));
        } else {
            const auto compositor = static_pointer_cast<display::IVelaComposerCallback>(it);
            EXPECT_EQ("ok", told(mComposer->registerCallback(compositor)));
        }
    }
    static LogLine registered(const Client& it) {
        const char* const formats[] = {"Register callback: 0xfffffffffffffff0,%p",
                                       "Register soft vela client: 0xfffffffffffffff0,%p",
                                       "Register callback: %p"};
        return debugLine(formats[static_cast<int>(GetParam())], static_cast<void*>(it.get()));
    }
    static LogLine died() {
        const char* const lines[] = {"Noticed AIDL death of IVelaCallback 0xfffffffffffffff0",
                                     "Noticed AIDL death of ISoftVelaClient 0xfffffffffffffff0",
                                     "Noticed AIDL death of IVelaComposerCallback"};
        return debugLine("%s", lines[static_cast<int>(GetParam())]);
    }
    /** Who hears an event. */
    std::string raise() {
        if (GetParam() == Kind::kCallback) library().featureChanged(1, {});
        if (GetParam() == Kind::kSoftClient) (void)library().softSetConfig(0, 0, {});
        if (GetParam() == Kind::kCompositor) library().powerChanged(0, 0);
        return heard().substr(0, 1);
    }
    /** This client is linked, and no other. */
    void expectLinked(const Client& it) const {
        EXPECT_THAT(mSpy.linked(), ElementsAre(it->asBinder().get()));
    }

    std::shared_ptr<display::VelaDefault> mService =
            ndk::SharedRefBase::make<display::VelaDefault>();
    std::shared_ptr<display::IVelaComposerClient> mComposer;
    DeathSpy mSpy;
    vela::test::LogCapture mLog;
};

INSTANTIATE_TEST_SUITE_P(Kinds, DeathLinkTest,
                         testing::Values(Kind::kCallback, Kind::kSoftClient, Kind::kCompositor));

TEST_P(DeathLinkTest, OfAReplacedClientIsUnlinkedBeforeTheNextIsLinked) {
    const Client first = client("1");
    const Client second = client("2");
    mLog.onNextLine([&] { add(second); });  // it is written outside the lock
    add(first);
    expectLinked(first);
    EXPECT_EQ(raise(), "1");
    for (const size_t unlinked : {2u, 3u}) {
        mSpy.onNextUnlink([&] { expectLinked(unlinked == 2 ? first : second); });
        add(second);
        EXPECT_EQ(mSpy.unlinked(), unlinked);
        EXPECT_EQ(mSpy.recipients(), 1u);
        expectLinked(second);
        EXPECT_TRUE(isForgotten(first));
        EXPECT_EQ(raise(), "2");
    }
    EXPECT_THAT(mLog.take(), ElementsAre(registered(first), registered(second), registered(second),
                                         registered(second)));
}

TEST_P(DeathLinkTest, NotifiesOnceAndEndsWithinItsNotification) {
    const Client it = client("1");
    add(it);
    mLog.take();
    mSpy.dieWithoutCookie();
    EXPECT_EQ(raise(), "1");
    EXPECT_THAT(mLog.take(), IsEmpty());
    mSpy.die();
    EXPECT_THAT(mLog.take(), ElementsAre(died()));
    EXPECT_EQ(mSpy.unlinked(), 1u);
    EXPECT_EQ(mSpy.recipients(), 0u);
    EXPECT_TRUE(isForgotten(it));
    EXPECT_EQ(raise(), "");
    add(it);
    EXPECT_EQ(raise(), "1");
}

TEST_P(DeathLinkTest, OnlyHasItsLineWrittenOnceItsRegistrationHasLetGo) {
    const Client it = client("1");
    const Client next = client("2");
    add(it);
    const auto ofFirst = mSpy.begin();
    add(it);
    const auto ofSecond = mSpy.begin();
    // Where records were freed too early, this one would have the address of an earlier one.
    add(it);
    mLog.take();
    ofFirst();
    ofSecond();
    EXPECT_THAT(mLog.take(), ElementsAre(died(), died()));
    EXPECT_EQ(raise(), "1");

    // The line is written before the lock is taken: there a notification can be held.
    mLog.onNextLine([&] { add(next); });
    mSpy.die();
    EXPECT_TRUE(isForgotten(it));
    EXPECT_EQ(raise(), "2");

    // One that arrives after the end has no owner to tell.
    const auto ofDestroyed = mSpy.begin();
    mComposer.reset();
    mService.reset();
    mLog.take();
    ofDestroyed();
    EXPECT_THAT(mLog.take(), IsEmpty());
    EXPECT_EQ(mSpy.recipients(), 0u);
    // A composer client ends its link by deleting the recipient.
    EXPECT_EQ(mSpy.unlinked(), GetParam() == Kind::kCompositor ? 3u : 4u);
}

struct Record : DeathLink {
    Record() : DeathLink([](void*) {}) { ++sCount; }
    ~Record() override { --sCount; }

    static inline int sCount = 0;
};

TEST(DeathRecordTest, IsFreedWhenRegistrationAndPlatformHaveLetGo) {
    const auto client = ndk::SharedRefBase::make<vts::Callback>(vts::ignore);
    const ndk::SpAIBinder binder = client->asBinder();
    // The platform refuses the first, the second has no binder, the third is none.
    const Client kClients[] = {client, ndk::SharedRefBase::make<display::IVelaCallbackDefault>(),
                               nullptr};
    DeathLink::Held<Record> record(new Record);
    for (const auto& it : kClients) {
        record->link(it);
        record->unlink(it);
    }
    EXPECT_EQ(Record::sCount, 1);
    record.reset();
    EXPECT_EQ(Record::sCount, 0);
    {
        const DeathSpy spy;
        record.reset(new Record);
        record->link(client);
        Record* const held = record.get();
        record.reset();
        held->unlink(client);
        EXPECT_EQ(spy.unlinked(), 0u) << "there is nothing left to unlink with";
        EXPECT_EQ(Record::sCount, 1) << "the link of a deleted recipient ends with its proxy";
    }
    EXPECT_EQ(Record::sCount, 0);
}

}  // namespace
}  // namespace lmfg::support
