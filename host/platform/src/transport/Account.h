#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>

namespace binder {

/** What one process can take up in another. */
enum class Resource : size_t {
    kDescriptors,  // connections, and what is unfinished, kept or waiting on them
    kEnds,         // references to objects, each a descriptor as well
    kBytes,        // unfinished, kept or waiting
};

/**
 * What another process takes up in this one, whatever it calls itself: all limits read it. Any
 * thread.
 */
class Account {
  public:
    ~Account();

    /** False, and nothing is added, when it were more than one process may have. */
    [[nodiscard]] bool add(Resource resource, size_t count);
    void remove(Resource resource, size_t count);

  private:
    std::array<std::atomic<size_t>, 3> mTaken{};
};

/** A part of an account, given back at its end. */
class Charge {
  public:
    Charge() = default;
    /** An empty one when the account has no room; see isMade(). */
    Charge(std::shared_ptr<Account> account, Resource resource, size_t count);
    ~Charge();
    Charge(Charge&& other) noexcept;
    Charge& operator=(Charge&& other) noexcept;

    bool isMade() const { return mAccount != nullptr; }

  private:
    std::shared_ptr<Account> mAccount;
    Resource mResource{};
    size_t mCount = 0;
};

}  // namespace binder
