#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <android/log.h>
#include <cutils/native_handle.h>

// The containers of HIDL records. Records travel by reference between separately built libraries,
// so the layout of these types is fixed: pointer, 32-bit size, ownership flag, 16 bytes aligned
// to 8. None of them is thread-safe. What cannot be represented aborts the process with a logged
// message.

namespace android::hardware {

namespace details {

/** Logs `message` at fatal priority and aborts. */
[[noreturn]] inline void logAlwaysFatal(const char* message) {
    __android_log_assert(nullptr, "HidlSupport", "%s", message);
}

inline uint32_t checkedSize(size_t size, const char* message) {
    if (size > std::numeric_limits<uint32_t>::max()) logAlwaysFatal(message);
    return static_cast<uint32_t>(size);
}

}  // namespace details

/**
 * A native handle that may be null, owned or borrowed. An owned handle is closed and deleted with
 * its holder. Copies are owned clones (the descriptors are duplicated); a failed clone aborts.
 */
struct alignas(8) hidl_handle {
    hidl_handle() = default;
    /** Borrows `handle`, which has to outlive this object; may be null. */
    hidl_handle(const native_handle_t* handle) : mHandle(handle) {}
    hidl_handle(const hidl_handle& other) { *this = other; }
    hidl_handle(hidl_handle&& other) noexcept { *this = std::move(other); }
    ~hidl_handle() { freeHandle(); }

    hidl_handle& operator=(const hidl_handle& other) {
        if (this == &other) return *this;
        freeHandle();
        if (other.mHandle != nullptr) {
            mHandle = native_handle_clone(other.mHandle);
            if (mHandle == nullptr) details::logAlwaysFatal("Failed to clone a native handle.");
            mOwnsHandle = true;
        }
        return *this;
    }

    /** Takes over handle and ownership; `other` becomes null. */
    hidl_handle& operator=(hidl_handle&& other) noexcept {
        if (this == &other) return *this;
        freeHandle();
        mHandle = std::exchange(other.mHandle, nullptr);
        mOwnsHandle = std::exchange(other.mOwnsHandle, false);
        return *this;
    }

    /** Borrows `handle`. */
    hidl_handle& operator=(const native_handle_t* handle) {
        freeHandle();
        mHandle = handle;
        return *this;
    }

    void setTo(native_handle_t* handle, bool shouldOwn = false) {
        freeHandle();
        mHandle = handle;
        mOwnsHandle = shouldOwn;
    }

    const native_handle_t* getNativeHandle() const { return mHandle; }
    const native_handle_t* operator->() const { return mHandle; }
    operator const native_handle_t*() const { return mHandle; }

  private:
    void freeHandle() {
        if (mOwnsHandle && mHandle != nullptr) {
            native_handle_close(mHandle);
            native_handle_delete(const_cast<native_handle_t*>(mHandle));
        }
        mHandle = nullptr;
        mOwnsHandle = false;
    }

    const native_handle_t* mHandle = nullptr;
    bool mOwnsHandle = false;
};

/**
 * Text of up to 4294967295 bytes, any bytes including zeros, always followed by a terminating
 * zero.
 */
struct alignas(8) hidl_string {
    hidl_string() = default;
    hidl_string(const char* text) { assign(text == nullptr ? std::string_view() : text); }
    hidl_string(const char* text, size_t length) { assign({text, length}); }
    hidl_string(const std::string& text) { assign(text); }
    hidl_string(const hidl_string& other) { assign(other.view()); }
    hidl_string(hidl_string&& other) noexcept { *this = std::move(other); }
    ~hidl_string() { clear(); }

    hidl_string& operator=(const hidl_string& other) {
        if (this != &other) assign(other.view());
        return *this;
    }

    /** Takes over the buffer; `other` becomes empty. */
    hidl_string& operator=(hidl_string&& other) noexcept {
        if (this == &other) return *this;
        clear();
        mBuffer = std::exchange(other.mBuffer, kEmpty);
        mSize = std::exchange(other.mSize, 0);
        mOwnsBuffer = std::exchange(other.mOwnsBuffer, false);
        return *this;
    }

    hidl_string& operator=(const char* text) { return *this = hidl_string(text); }
    hidl_string& operator=(const std::string& text) { return *this = hidl_string(text); }

    operator std::string() const { return std::string(view()); }
    const char* c_str() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }

    void clear() {
        if (mOwnsBuffer) delete[] mBuffer;
        mBuffer = kEmpty;
        mSize = 0;
        mOwnsBuffer = false;
    }

    /**
     * Borrows `size` bytes at `data`, which must be followed by a zero (aborts otherwise) and has
     * to outlive this object.
     */
    void setToExternal(const char* data, size_t size) {
        const uint32_t checked = details::checkedSize(size, kTooLong);
        if (data[size] != '\0') details::logAlwaysFatal("External string is not terminated.");
        clear();
        mBuffer = data;
        mSize = checked;
    }

    /** Up to the first zero byte. */
    friend bool operator==(const hidl_string& a, const hidl_string& b) {
        return strcmp(a.mBuffer, b.mBuffer) == 0;
    }
    friend auto operator<=>(const hidl_string& a, const hidl_string& b) {
        return strcmp(a.mBuffer, b.mBuffer) <=> 0;
    }
    friend std::ostream& operator<<(std::ostream& out, const hidl_string& text) {
        return out << text.view();
    }

  private:
    static constexpr const char* kEmpty = "";
    static constexpr const char* kTooLong = "string size can't exceed 2^32 bytes.";

    std::string_view view() const { return {mBuffer, mSize}; }

    void assign(std::string_view text) {
        const uint32_t size = details::checkedSize(text.size(), kTooLong);
        // Copied before the old buffer goes: `text` may lie inside it.
        char* copy = new char[text.size() + 1];
        if (!text.empty()) std::memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
        clear();
        mBuffer = copy;
        mSize = size;
        mOwnsBuffer = true;
    }

    const char* mBuffer = kEmpty;
    uint32_t mSize = 0;
    bool mOwnsBuffer = false;
};

/**
 * A list of up to 4294967295 elements. Empty lists that nothing was ever put into have no buffer.
 */
template <typename T>
struct alignas(8) hidl_vec {
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    hidl_vec() = default;
    explicit hidl_vec(size_t size) { resize(size); }
    hidl_vec(const hidl_vec& other) { copyFrom(other.begin(), other.size()); }
    hidl_vec(hidl_vec&& other) noexcept { *this = std::move(other); }
    hidl_vec(std::initializer_list<T> list) { copyFrom(list.begin(), list.size()); }
    hidl_vec(const std::vector<T>& other) { copyFrom(other.begin(), other.size()); }
    template <std::forward_iterator Iterator>
    hidl_vec(Iterator first, Iterator last) {
        copyFrom(first, static_cast<size_t>(std::distance(first, last)));
    }
    ~hidl_vec() { freeBuffer(); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this == &other) return *this;
        freeBuffer();
        copyFrom(other.begin(), other.size());
        return *this;
    }

    /**
     * Takes over buffer, size and ownership. `other` keeps pointer and size, but no longer owns.
     */
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this == &other) return *this;
        freeBuffer();
        mBuffer = other.mBuffer;
        mSize = other.mSize;
        mOwnsBuffer = std::exchange(other.mOwnsBuffer, false);
        return *this;
    }

    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    size_t size() const { return mSize; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    T* begin() { return mBuffer; }
    T* end() { return mBuffer + mSize; }
    const T* begin() const { return mBuffer; }
    const T* end() const { return mBuffer + mSize; }

    /** Always allocates, also for 0: kept elements are moved, added ones value-initialised. */
    void resize(size_t size) {
        const uint32_t checked = details::checkedSize(size, kTooLong);
        T* buffer = new T[size]();
        std::move(mBuffer, mBuffer + std::min(mSize, checked), buffer);
        freeBuffer();
        mBuffer = buffer;
        mSize = checked;
        mOwnsBuffer = true;
    }

    /** Refers to `size` elements at `data`: borrowed, or freed with delete[] if `shouldOwn`. */
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        const uint32_t checked = details::checkedSize(size, kTooLong);
        freeBuffer();
        mBuffer = data;
        mSize = checked;
        mOwnsBuffer = shouldOwn;
    }

    /** Gives up ownership: if the buffer was owned, the caller frees the result with delete[]. */
    T* releaseData() {
        mOwnsBuffer = false;
        return mBuffer;
    }

    friend bool operator==(const hidl_vec& a, const hidl_vec& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
    }

  private:
    static constexpr const char* kTooLong = "hidl_vec can't hold more than 2^32 elements.";

    void freeBuffer() {
        if (mOwnsBuffer) delete[] mBuffer;
        mBuffer = nullptr;
        mSize = 0;
        mOwnsBuffer = false;
    }

    // Only on an object without a buffer of its own.
    template <typename Iterator>
    void copyFrom(Iterator first, size_t size) {
        mSize = details::checkedSize(size, kTooLong);
        mOwnsBuffer = true;
        if (size == 0) return;
        mBuffer = new T[size];
        std::copy_n(first, size, mBuffer);
    }

    T* mBuffer = nullptr;
    uint32_t mSize = 0;
    bool mOwnsBuffer = false;
};

static_assert(sizeof(hidl_handle) == 16 && alignof(hidl_handle) == 8);
static_assert(sizeof(hidl_string) == 16 && alignof(hidl_string) == 8);
static_assert(sizeof(hidl_vec<char>) == 16 && alignof(hidl_vec<char>) == 8);
static_assert(std::is_standard_layout_v<hidl_handle> && std::is_standard_layout_v<hidl_string> &&
              std::is_standard_layout_v<hidl_vec<char>>);

}  // namespace android::hardware
