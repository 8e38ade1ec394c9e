#pragma once

#include <memory>
#include <mutex>

#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>

namespace lmfg::support {

/**
 * Links and unlinks a death record: `recipient` is the record's own, `record` its address, which
 * is the cookie. Nothing happens for a null client, binder or recipient, and the platform's answer
 * is ignored: a local client cannot be linked, and one that is already dead stays registered.
 */
void linkToDeath(const std::shared_ptr<ndk::ICInterface>& client,
                 AIBinder_DeathRecipient* recipient, void* record);
void unlinkToDeath(const std::shared_ptr<ndk::ICInterface>& client,
                   AIBinder_DeathRecipient* recipient, void* record);

/**
 * Tells a death notification whether its record still exists.
 *
 * The platform drops a notification that has not begun when its link or its recipient goes, but
 * unlinking does not wait for one that is running. Such a late notification may carry the address
 * of a record that another thread is destroying, so it reads the record only through read().
 *
 * The address is all that a notification brings: a record of the same type that has meanwhile been
 * made at the very address cannot be told apart, so whoever replaces a record makes the new one
 * before the old one goes. The lock is taken inside the objects' own locks, and none inside it.
 *
 * A record holds its LiveRecord as the last member, so that it is entered when the record is
 * complete and leaves before any other field goes. What read() copies must stay valid on its own:
 * a record refers to its owner by a weak reference, because the owner may go at any moment too.
 */
class LiveRecord {
  public:
    template <typename Record>
    explicit LiveRecord(const Record* record) : LiveRecord(record, &kType<Record>) {}
    ~LiveRecord();
    LiveRecord(const LiveRecord&) = delete;
    LiveRecord& operator=(const LiveRecord&) = delete;

    /**
     * Calls `copy` with the record that `cookie` names if it still exists; it stays until `copy`
     * returns. `copy` takes no lock and calls nobody.
     */
    template <typename Record, typename Copy>
    static void read(void* cookie, Copy copy) {
        const auto lock = lockIfLive(cookie, &kType<Record>);
        if (lock.owns_lock()) copy(*static_cast<const Record*>(cookie));
    }

  private:
    /** Its address tells the types of records apart. */
    template <typename Record>
    static constexpr char kType = 0;

    LiveRecord(const void* record, const char* type);

    /** Holds the records' lock if `cookie` names one of that type, else nothing. */
    static std::unique_lock<std::mutex> lockIfLive(const void* cookie, const char* type);

    const void* const mRecord;
};

}  // namespace lmfg::support
