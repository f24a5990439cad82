#pragma once
// An owned, fixed-size heap array whose allocation reports failure instead of throwing, so a
// request the machine cannot satisfy becomes the converter's own "Insufficient memory" (or
// "Something is wrong with this file!") message rather than an exception or a crash.
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

namespace deqaz {

template <class T>
class HeapArray {
    static_assert(std::is_trivially_copyable_v<T>, "HeapArray holds plain data only");

public:
    HeapArray() = default;
    HeapArray(HeapArray&&) noexcept = default;
    HeapArray& operator=(HeapArray&&) noexcept = default;

    // Allocates `count` elements left uninitialised (the caller fills them in full).
    bool allocate(size_t count) {
        reset();
        if (count == 0) return true;
        if (count > SIZE_MAX / sizeof(T)) return false;
        data_.reset(new (std::nothrow) T[count]);
        if (!data_) return false;
        size_ = count;
        return true;
    }
    // Allocates `count` elements cleared to zero.
    bool allocZeroed(size_t count) {
        if (!allocate(count)) return false;
        if (count) std::memset(data_.get(), 0, count * sizeof(T));
        return true;
    }
    // Allocates a copy of `count` elements from `src`.
    bool dupBuffer(const T* src, size_t count) {
        if (!allocate(count)) return false;
        if (count) std::memcpy(data_.get(), src, count * sizeof(T));
        return true;
    }
    // Keeps the first `count` elements and releases the rest (a shrink, never a growth).
    bool shrink(size_t count) {
        if (count >= size_) return true;
        HeapArray smaller;
        if (!smaller.dupBuffer(data_.get(), count)) return false;
        *this = std::move(smaller);
        return true;
    }
    void reset() {
        data_.reset();
        size_ = 0;
    }

    T* data() { return data_.get(); }
    const T* data() const { return data_.get(); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    explicit operator bool() const { return data_ != nullptr; }
    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }
    T* begin() { return data_.get(); }
    T* end() { return data_.get() + size_; }
    const T* begin() const { return data_.get(); }
    const T* end() const { return data_.get() + size_; }

private:
    std::unique_ptr<T[]> data_;
    size_t size_ = 0;
};

}  // namespace deqaz
