// The encryption of a container's content in the WinZip AES format: AES in counter mode, authenticated by HMAC-SHA1 over the
// encrypted bytes, with keys derived from the password by 1,000 rounds of PBKDF2. One object encrypts or decrypts one content once,
// from its beginning, in pieces of any length.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include <nettle/aes.h>
#include <nettle/hmac.h>
#include <nettle/nettle-meta.h>

namespace companion {

class ContentCipher {
public:
    static constexpr std::size_t kLongestSalt = 16;
    static constexpr std::size_t kCodeBytes = 10;
    using Verifier = std::array<std::uint8_t, 2>;
    using Code = std::array<std::uint8_t, kCodeBytes>;

    static constexpr std::size_t SaltBytes(std::size_t keyBytes) { return keyBytes / 2; }
    // What encryption adds to a content: salt, verifier and authentication code.
    static constexpr std::size_t AddedBytes(std::size_t keyBytes) { return SaltBytes(keyBytes) + std::tuple_size_v<Verifier> + kCodeBytes; }

    // keyBytes is 16, 24 or 32; the salt has SaltBytes(keyBytes). Takes about a millisecond.
    ContentCipher(const std::string& password, std::span<const std::uint8_t> salt, std::size_t keyBytes);

    // Stored before the content: a wrong password has the same once in 65,536 times.
    const Verifier& PasswordVerifier() const { return m_verifier; }

    void Encrypt(std::span<std::uint8_t> data);
    void Decrypt(std::span<std::uint8_t> data);

    // Of everything so far; to be called once, at the end.
    Code AuthenticationCode();

private:
    void Apply(std::span<std::uint8_t> data);
    void MakeKeyStream();

    // Encrypting many counters at a time lets the processor work on several blocks at once.
    static constexpr std::size_t kKeyStreamBytes = 16 * 1024;

    const nettle_cipher& m_aes;
    aes256_ctx m_key;  // the largest of the three kinds
    hmac_sha1_ctx m_hmac;
    Verifier m_verifier;
    std::uint64_t m_counter = 0;
    std::size_t m_used = kKeyStreamBytes;
    std::array<std::uint8_t, kKeyStreamBytes> m_keyStream;
};

}  // namespace companion
