// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for the platform's <utils/StrongPointer.h>: Debian's sp<> lacks make().

#ifndef ANDROID_STRONG_POINTER_H
#define ANDROID_STRONG_POINTER_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <type_traits>
#include <utility>

namespace android {

template <typename T>
class wp;

// Provided by libutils. Both abort.
void sp_report_race();
void sp_report_stack_pointer();

// A strong pointer to an object that counts its own references.
template <typename T>
class sp {
  public:
    sp() = default;

    // A new object, owned by the result.
    template <typename... Args>
    static sp<T> make(Args&&... args);

    sp(T* other) : m_ptr(other) { acquireRaw(other); }  // NOLINT(implicit)
    sp(const sp<T>& other) : m_ptr(other.m_ptr) { acquire(m_ptr); }
    sp(sp<T>&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}
    template <typename U>
    sp(U* other) : m_ptr(other) {  // NOLINT(implicit)
        acquireRaw(m_ptr);
    }
    template <typename U>
    sp(const sp<U>& other) : m_ptr(other.m_ptr) {  // NOLINT(implicit)
        acquire(m_ptr);
    }
    template <typename U>
    sp(sp<U>&& other) : m_ptr(std::exchange(other.m_ptr, nullptr)) {}  // NOLINT(implicit)

    ~sp() {
        if (m_ptr != nullptr) m_ptr->decStrong(this);
    }

    sp& operator=(T* other) {
        acquireRaw(other);
        replace(other);
        return *this;
    }
    sp& operator=(const sp<T>& other) {
        T* const ptr = other.m_ptr;
        acquire(ptr);
        replace(ptr);
        return *this;
    }
    sp& operator=(sp<T>&& other) noexcept {
        if (this != &other) replace(std::exchange(other.m_ptr, nullptr));
        return *this;
    }
    template <typename U>
    sp& operator=(U* other) {
        return *this = static_cast<T*>(other);
    }
    template <typename U>
    sp& operator=(const sp<U>& other) {
        T* const ptr = other.m_ptr;
        acquire(ptr);
        replace(ptr);
        return *this;
    }
    template <typename U>
    sp& operator=(sp<U>&& other) {
        replace(std::exchange(other.m_ptr, nullptr));
        return *this;
    }

    void force_set(T* other) {
        other->forceIncStrong(this);
        m_ptr = other;
    }

    void clear() { replace(nullptr); }

    T& operator*() const { return *m_ptr; }
    T* operator->() const { return m_ptr; }
    T* get() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

    template <typename U>
    bool operator==(const wp<U>& other) const {
        return other == *this;
    }
    template <typename U>
    bool operator!=(const wp<U>& other) const {
        return other != *this;
    }

  private:
    template <typename Y>
    friend class sp;
    template <typename Y>
    friend class wp;

    // For wp<>::promote(), which has taken the reference already.
    void set_pointer(T* ptr) { m_ptr = ptr; }

    void acquire(T* ptr) {
        if (ptr != nullptr) ptr->incStrong(this);
    }
    void acquireRaw(T* ptr) {
        if (ptr == nullptr) return;
        checkNotOnStack(ptr);
        ptr->incStrong(this);
    }

    // Owns `ptr`, whose reference is taken, in place of the present object. The pointer is read
    // twice, through volatile, to catch two threads that write one sp<> at the same time.
    void replace(T* ptr) {
        T* const old = *const_cast<T* volatile*>(&m_ptr);
        if (old != nullptr) old->decStrong(this);
        if (old != *const_cast<T* volatile*>(&m_ptr)) sp_report_race();
        m_ptr = ptr;
    }

    // An object on the stack must not be owned. The frame's own page is proof enough: memory from
    // the heap never shares a page with a stack.
    static void checkNotOnStack(const void* ptr) {
        constexpr uintptr_t kPageMask = ~static_cast<uintptr_t>(0xfff);
        const uintptr_t frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        if (((reinterpret_cast<uintptr_t>(ptr) ^ frame) & kPageMask) == 0) {
            sp_report_stack_pointer();
        }
    }

    T* m_ptr = nullptr;
};

template <typename T>
template <typename... Args>
sp<T> sp<T>::make(Args&&... args) {
    sp<T> result;
    T* const object = new T(std::forward<Args>(args)...);
    result.m_ptr = object;
    object->incStrong(&result);
    return result;
}

// Comparison with another sp<>, a raw pointer and nullptr, on both sides.
#define CORVANE_SP_COMPARE(_op_, _function_)                               \
    template <typename T, typename U>                                      \
    inline bool operator _op_(const sp<T>& t, const sp<U>& u) {            \
        return _function_<std::common_type_t<T*, U*>>()(t.get(), u.get()); \
    }                                                                      \
    template <typename T, typename U>                                      \
    inline bool operator _op_(const T* t, const sp<U>& u) {                \
        return _function_<std::common_type_t<const T*, U*>>()(t, u.get()); \
    }                                                                      \
    template <typename T, typename U>                                      \
    inline bool operator _op_(const sp<T>& t, const U* u) {                \
        return _function_<std::common_type_t<T*, const U*>>()(t.get(), u); \
    }                                                                      \
    template <typename T>                                                  \
    inline bool operator _op_(const sp<T>& t, std::nullptr_t) {            \
        return _function_<T*>()(t.get(), nullptr);                         \
    }                                                                      \
    template <typename T>                                                  \
    inline bool operator _op_(std::nullptr_t, const sp<T>& t) {            \
        return _function_<T*>()(nullptr, t.get());                         \
    }

CORVANE_SP_COMPARE(==, std::equal_to)
CORVANE_SP_COMPARE(!=, std::not_equal_to)
CORVANE_SP_COMPARE(<, std::less)
CORVANE_SP_COMPARE(>, std::greater)
CORVANE_SP_COMPARE(<=, std::less_equal)
CORVANE_SP_COMPARE(>=, std::greater_equal)

#undef CORVANE_SP_COMPARE

}  // namespace android

#endif  // ANDROID_STRONG_POINTER_H
