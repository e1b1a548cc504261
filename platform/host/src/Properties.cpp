// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "corvane/host/Properties.h"

#include <android-base/parsebool.h>
#include <android-base/properties.h>
#include <cutils/properties.h>

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <limits>
#include <utility>

#include "PropertyStore.h"

namespace corvane::host {
namespace {

bool isReadOnly(const std::string& name) {
    return name.compare(0, 3, "ro.") == 0;
}

// The device's init refuses any other name.
bool isLegalName(const std::string& name) {
    if (name.empty() || name.front() == '.' || name.back() == '.') return false;
    for (size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (c == '.' && name[i - 1] == '.') return false;
        if (isalnum(static_cast<unsigned char>(c)) == 0 && strchr("._-@:", c) == nullptr) {
            return false;
        }
    }
    return true;
}

}  // namespace

PropertyStore& PropertyStore::get() {
    static auto* store = new PropertyStore;
    return *store;
}

PropertyStore::Property PropertyStore::read(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mMutex);
    ++mReads[name];
    const auto it = mProperties.find(name);
    return it == mProperties.end() ? Property{} : it->second;
}

bool PropertyStore::set(const std::string& name, const std::string& value) {
    if (!isLegalName(name) || value.size() >= PROP_VALUE_MAX) return false;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        Property& property = mProperties[name];
        if (isReadOnly(name) && !property.value.empty()) return false;
        property = {value, ++mLastSerial};
    }
    mChanged.notify_all();
    return true;
}

int PropertyStore::reads(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto it = mReads.find(name);
    return it == mReads.end() ? 0 : it->second;
}

bool PropertyStore::wait(const std::string& name, std::chrono::milliseconds timeout,
                         const std::function<bool(const Property&)>& wanted) const {
    using Clock = std::chrono::steady_clock;
    std::unique_lock<std::mutex> lock(mMutex);
    const auto holds = [&] {
        const auto it = mProperties.find(name);
        return it != mProperties.end() && wanted(it->second);
    };
    // A time-out past the clock's range would overflow to a deadline in the past.
    const auto now = Clock::now();
    if (timeout >=
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now)) {
        mChanged.wait(lock, holds);
        return true;
    }
    return mChanged.wait_until(lock, now + timeout, holds);
}

int propertyReads(const std::string& name) {
    return PropertyStore::get().reads(name);
}

}  // namespace corvane::host

using corvane::host::PropertyStore;

namespace android::base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    const std::string value = PropertyStore::get().read(key).value;
    return value.empty() ? default_value : value;
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    switch (ParseBool(GetProperty(key, ""))) {
        case ParseBoolResult::kError:
            return default_value;
        case ParseBoolResult::kFalse:
            return false;
        case ParseBoolResult::kTrue:
            return true;
    }
    return default_value;
}

bool SetProperty(const std::string& key, const std::string& value) {
    return PropertyStore::get().set(key, value);
}

bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout) {
    return PropertyStore::get().wait(key, relative_timeout, [&](const PropertyStore::Property& p) {
        return p.value == expected_value;
    });
}

CachedProperty::CachedProperty(std::string property_name) : mName(std::move(property_name)) {}

CachedProperty::CachedProperty(const char* property_name) : mName(property_name) {}

const char* CachedProperty::Get(bool* changed) {
    PropertyStore::Property property = PropertyStore::get().read(mName);
    if (changed != nullptr) *changed = property.serial != mSerial;
    mValue = std::move(property.value);
    mSerial = property.serial;
    return mValue.c_str();
}

const char* CachedProperty::WaitForChange(std::chrono::milliseconds relative_timeout) {
    const bool isChanged = PropertyStore::get().wait(mName, relative_timeout,
                                                     [this](const PropertyStore::Property& p) {
                                                         return p.serial != mSerial;
                                                     });
    return isChanged ? Get() : nullptr;
}

}  // namespace android::base

int property_get(const char* key, char* value, const char* default_value) {
    std::string text = PropertyStore::get().read(key).value;
    if (text.empty() && default_value != nullptr) text = default_value;
    text.resize(strnlen(text.c_str(), PROPERTY_VALUE_MAX - 1));
    memcpy(value, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    if (key == nullptr) return default_value;
    // Not through a bool, since the default may be any number.
    switch (android::base::ParseBool(android::base::GetProperty(key, ""))) {
        case android::base::ParseBoolResult::kError:
            return default_value;
        case android::base::ParseBoolResult::kFalse:
            return 0;
        case android::base::ParseBoolResult::kTrue:
            return 1;
    }
    return default_value;
}

namespace {

// libcutils' integers: octal and hexadecimal too, and whatever follows the digits is ignored.
template <typename T>
T getInteger(const char* key, T default_value) {
    if (key == nullptr) return default_value;
    const std::string text = android::base::GetProperty(key, "");
    const int savedErrno = std::exchange(errno, 0);
    char* end = nullptr;
    const intmax_t number = strtoimax(text.c_str(), &end, 0);
    const bool isNumber = errno != ERANGE && end != text.c_str() &&
                          number >= std::numeric_limits<T>::min() &&
                          number <= std::numeric_limits<T>::max();
    errno = savedErrno;
    return isNumber ? static_cast<T>(number) : default_value;
}

}  // namespace

int64_t property_get_int64(const char* key, int64_t default_value) {
    return getInteger(key, default_value);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    return getInteger(key, default_value);
}

int property_set(const char* key, const char* value) {
    return PropertyStore::get().set(key, value == nullptr ? "" : value) ? 0 : -1;
}
