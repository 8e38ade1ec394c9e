#include "transport/Account.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include <sys/resource.h>

#include "transport/Wire.h"

namespace binder {
namespace {

constexpr size_t kMaxBytes = size_t{32} * 1024 * 1024;
// Beside what one transaction brings, so many connections are always allowed, and never more.
constexpr size_t kFewConnections = 64;
constexpr size_t kManyDescriptors = 4096;

/** A quarter of the descriptors goes to one process, as far as a transaction fits into that. */
size_t mostOf(Resource resource) {
    if (resource == Resource::kBytes) return kMaxBytes;
    rlimit table{};
    getrlimit(RLIMIT_NOFILE, &table);
    const size_t quarter = table.rlim_cur / 4;
    if (resource == Resource::kEnds) return std::max(quarter, kMaxDescriptors);
    return std::clamp(quarter, kMaxDescriptors + kFewConnections, kManyDescriptors);
}

}  // namespace

Account::~Account() {
    for ([[maybe_unused]] const auto& taken : mTaken)
        assert(taken == 0);
}

bool Account::add(Resource resource, size_t count) {
    std::atomic<size_t>& taken = mTaken.at(static_cast<size_t>(resource));
    if (taken.fetch_add(count, std::memory_order_relaxed) + count <= mostOf(resource)) return true;
    remove(resource, count);
    return false;
}

void Account::remove(Resource resource, size_t count) {
    [[maybe_unused]] const size_t before =
            mTaken.at(static_cast<size_t>(resource)).fetch_sub(count, std::memory_order_relaxed);
    assert(before >= count);
}

Charge::Charge(std::shared_ptr<Account> account, Resource resource, size_t count)
    : mResource(resource), mCount(count) {
    if (account->add(resource, count)) mAccount = std::move(account);
}

Charge::~Charge() {
    if (mAccount != nullptr) mAccount->remove(mResource, mCount);
}

Charge::Charge(Charge&& other) noexcept
    : mAccount(std::move(other.mAccount)), mResource(other.mResource), mCount(other.mCount) {}

Charge& Charge::operator=(Charge&& other) noexcept {
    std::swap(mAccount, other.mAccount);
    std::swap(mResource, other.mResource);
    std::swap(mCount, other.mCount);
    return *this;
}

}  // namespace binder
