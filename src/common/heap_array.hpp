#pragma once
// An owned, fixed-size heap array whose allocation reports failure instead of throwing, so a
// request the machine cannot satisfy becomes the converter's own "Insufficient memory" (or
// "Something is wrong with this file!") message rather than an exception or a crash.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
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
        data_.reset(static_cast<T*>(std::malloc(count * sizeof(T))));
        if (!data_) return false;
        size_ = count;
        return true;
    }
    // Allocates `count` elements cleared to zero (calloc: large blocks cost nothing until used).
    bool allocZeroed(size_t count) {
        reset();
        if (count == 0) return true;
        data_.reset(static_cast<T*>(std::calloc(count, sizeof(T))));
        if (!data_) return false;
        size_ = count;
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
        if (count == 0) {
            reset();
            return true;
        }
        T* smaller = static_cast<T*>(std::realloc(data_.get(), count * sizeof(T)));
        if (!smaller) return false;  // the old block is still owned and intact
        (void)data_.release();
        data_.reset(smaller);
        size_ = count;
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
    T& operator[](size_t i) { return data_.get()[i]; }
    const T& operator[](size_t i) const { return data_.get()[i]; }
    T* begin() { return data_.get(); }
    T* end() { return data_.get() + size_; }
    const T* begin() const { return data_.get(); }
    const T* end() const { return data_.get() + size_; }

private:
    struct Free {
        void operator()(T* p) const { std::free(p); }
    };
    std::unique_ptr<T, Free> data_;
    size_t size_ = 0;
};

}  // namespace deqaz
