#include <cstdint>
#include <string>

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <gtest/gtest.h>

#include "tests/platform/ndk/ParcelTest.h"

namespace {

using ndk::ScopedAParcel;
using ndk::ScopedAStatus;

struct Case {
    const char* name;
    AStatus* (*make)();
    binder_exception_t exception;
    binder_status_t status;
    int32_t error;
    const char* message;
    const char* description;
};

const Case kCases[] = {
        {"ok", [] { return AStatus_newOk(); }, EX_NONE, STATUS_OK, 0, "", "No error"},
        {"deadObject", [] { return AStatus_fromStatus(STATUS_DEAD_OBJECT); }, EX_TRANSACTION_FAILED,
         STATUS_DEAD_OBJECT, 0, "", "Status(-129, EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '"},
        {"unknownError", [] { return AStatus_fromStatus(STATUS_UNKNOWN_ERROR); },
         EX_TRANSACTION_FAILED, INT32_MIN, 0, "",
         "Status(-129, EX_TRANSACTION_FAILED): 'UNKNOWN_ERROR: '"},
        {"foreignStatus", [] { return AStatus_fromStatus(42); }, EX_TRANSACTION_FAILED,
         STATUS_UNKNOWN_ERROR, 0, "", "Status(-129, EX_TRANSACTION_FAILED): 'UNKNOWN_ERROR: '"},
        {"specific", [] { return AStatus_fromServiceSpecificError(7); }, EX_SERVICE_SPECIFIC,
         STATUS_OK, 7, "", "Status(-8, EX_SERVICE_SPECIFIC): '7: '"},
        {"specificNone", [] { return AStatus_fromExceptionCode(EX_SERVICE_SPECIFIC); },
         EX_SERVICE_SPECIFIC, STATUS_OK, 0, "", "Status(-8, EX_SERVICE_SPECIFIC): '0: '"},
        {"specificMessage",
         [] { return AStatus_fromServiceSpecificErrorWithMessage(7, "busy now"); },
         EX_SERVICE_SPECIFIC, STATUS_OK, 7, "busy now",
         "Status(-8, EX_SERVICE_SPECIFIC): '7: busy now'"},
        {"exceptionMessage",
         [] { return AStatus_fromExceptionCodeWithMessage(EX_SECURITY, "no \u2713"); }, EX_SECURITY,
         STATUS_OK, 0, "no \u2713", "Status(-1, EX_SECURITY): 'no \u2713'"},
        {"foreignException", [] { return AStatus_fromExceptionCode(-77); }, EX_TRANSACTION_FAILED,
         STATUS_FAILED_TRANSACTION, 0, "",
         "Status(-129, EX_TRANSACTION_FAILED): 'FAILED_TRANSACTION: '"},
};

void expectLike(const ScopedAStatus& status, const Case& test) {
    EXPECT_EQ(status.isOk(), test.exception == EX_NONE);
    EXPECT_EQ(status.getExceptionCode(), test.exception);
    EXPECT_EQ(status.getStatus(), test.status);
    EXPECT_EQ(status.getServiceSpecificError(), test.error);
    EXPECT_STREQ(status.getMessage(), test.message);
    EXPECT_EQ(status.getDescription(), test.description);
}

TEST(Status, TellsWhatItWasMadeOf) {
    for (const Case& test : kCases) {
        SCOPED_TRACE(test.name);
        expectLike(ScopedAStatus(test.make()), test);
    }
}

TEST(Status, CrossesAParcelUnlessTheTransactionFailed) {
    for (const Case& test : kCases) {
        SCOPED_TRACE(test.name);
        const ScopedAStatus written(test.make());
        const ScopedAParcel parcel(AParcel_create());
        const binder_status_t result = AParcel_writeStatusHeader(parcel.get(), written.get());
        EXPECT_EQ(result, test.exception == EX_TRANSACTION_FAILED ? test.status : STATUS_OK);
        if (result != STATUS_OK) {
            EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
            continue;
        }
        AParcel_setDataPosition(parcel.get(), 0);
        ScopedAStatus read;
        ASSERT_EQ(AParcel_readStatusHeader(parcel.get(), read.getR()), STATUS_OK);
        expectLike(read, test);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));

        const std::vector<uint8_t> bytes = bytesOf(parcel.get());
        for (size_t kept = 0; kept < bytes.size(); kept += 4) {
            EXPECT_NE(AParcel_readStatusHeader(parcelOf(bytes, kept).get(), read.getR()), STATUS_OK)
                    << kept;
        }
    }
}

TEST(Status, ForeignExceptionFromAPeerIsAFailedTransaction) {
    const ScopedAParcel parcel = parcelOf({-1000, 0, 0 /*the message*/, 0});
    ScopedAStatus read;
    ASSERT_EQ(AParcel_readStatusHeader(parcel.get(), read.getR()), STATUS_OK);
    EXPECT_EQ(read.getExceptionCode(), EX_TRANSACTION_FAILED);
}

}  // namespace
