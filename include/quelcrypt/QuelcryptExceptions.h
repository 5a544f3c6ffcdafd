// The exceptions that cross between the volume and its companion library, and the string object that both use.
// Everything is inline, so that each module compiles its own copy; modules match the classes by their names, which is
// why they are in the global namespace.
#pragma once

#include <cwchar>
#include <memory>
#include <string>

#include "quelcrypt/QuelcryptLib.h"

// Owns one text. One owner, one Release; there is no reference count.
class CHvcStringWImpl final : public IHvcStringW {
public:
    // Null and "" both make an empty object.
    explicit CHvcStringWImpl(const wchar_t* text) {
        if (text && *text) {
            const std::size_t units = std::wcslen(text) + 1;
            m_text = std::make_unique<wchar_t[]>(units);
            std::wmemcpy(m_text.get(), text, units);
        }
    }
    ~CHvcStringWImpl() = default;
    CHvcStringWImpl(const CHvcStringWImpl&) = delete;
    CHvcStringWImpl& operator=(const CHvcStringWImpl&) = delete;

    void* Destroy(std::uint32_t flags) override {
        void* const address = this;
        m_text.reset();
        if (flags & 1)
            delete this;
        return address;
    }
    void Release() override { delete this; }
    const wchar_t* GetString() override { return m_text.get(); }

private:
    std::unique_ptr<wchar_t[]> m_text;
};

// The base class: a failure without a description.
class CQuelcryptException {
public:
    CQuelcryptException() = default;
    CQuelcryptException(const CQuelcryptException&) = default;
    CQuelcryptException& operator=(const CQuelcryptException&) = delete;
    virtual ~CQuelcryptException() = default;
};

// Thrown by the callback that the volume registers with Quelcrypt_Initialize, on the library's behalf.
class CQuelcryptInterfaceException : public CQuelcryptException {};

// A failure with a description, which catchers may compare without regard to case.
class CQuelcryptErrorException : public CQuelcryptException {
public:
    explicit CQuelcryptErrorException(const wchar_t* description) : m_description(new CHvcStringWImpl(description)) {}
    CQuelcryptErrorException(const CQuelcryptErrorException& other)
        : CQuelcryptException(other), m_description(new CHvcStringWImpl(other.GetDescription())) {}
    ~CQuelcryptErrorException() override {
        if (m_description)
            m_description->Release();
    }

    // Never null; valid as long as the exception.
    const wchar_t* GetDescription() const {
        const wchar_t* const text = m_description ? m_description->GetString() : nullptr;
        return text ? text : L"";
    }

private:
    IHvcStringW* m_description;  // owned; null when absent
};

class CQuelcryptInvalidArgumentException : public CQuelcryptErrorException {
public:
    CQuelcryptInvalidArgumentException() : CQuelcryptErrorException(L"Invalid argument") {}
};

inline constexpr const wchar_t* kOutOfMemoryDescription = L"Out of memory";
class CQuelcryptOutOfMemoryException : public CQuelcryptErrorException {
public:
    CQuelcryptOutOfMemoryException() : CQuelcryptErrorException(kOutOfMemoryDescription) {}
};
