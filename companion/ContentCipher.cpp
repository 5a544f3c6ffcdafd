#include "ContentCipher.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <nettle/memxor.h>
#include <nettle/pbkdf2.h>

namespace companion {
namespace {

constexpr unsigned kKeyRounds = 1000;

const nettle_cipher& AesOf(std::size_t keyBytes) {
    return keyBytes == AES128_KEY_SIZE ? nettle_aes128 : keyBytes == AES192_KEY_SIZE ? nettle_aes192 : nettle_aes256;
}

}  // namespace

ContentCipher::ContentCipher(const std::string& password, std::span<const std::uint8_t> salt, std::size_t keyBytes)
    : m_aes(AesOf(keyBytes)) {
    // The encryption key, the authentication key, the verifier.
    std::vector<std::uint8_t> derived(2 * keyBytes + m_verifier.size());
    pbkdf2_hmac_sha1(password.size(), reinterpret_cast<const std::uint8_t*>(password.data()), kKeyRounds, salt.size(), salt.data(),
                     derived.size(), derived.data());
    m_aes.set_encrypt_key(&m_key, derived.data());
    hmac_sha1_set_key(&m_hmac, keyBytes, derived.data() + keyBytes);
    std::copy_n(derived.end() - m_verifier.size(), m_verifier.size(), m_verifier.begin());
}

void ContentCipher::Encrypt(std::span<std::uint8_t> data) {
    Apply(data);
    hmac_sha1_update(&m_hmac, data.size(), data.data());
}

void ContentCipher::Decrypt(std::span<std::uint8_t> data) {
    hmac_sha1_update(&m_hmac, data.size(), data.data());
    Apply(data);
}

ContentCipher::Code ContentCipher::AuthenticationCode() {
    Code code;
    hmac_sha1_digest(&m_hmac, code.size(), code.data());
    return code;
}

void ContentCipher::Apply(std::span<std::uint8_t> data) {
    while (!data.empty()) {
        if (m_used == m_keyStream.size())
            MakeKeyStream();
        const std::size_t length = std::min(data.size(), m_keyStream.size() - m_used);
        memxor(data.data(), m_keyStream.data() + m_used, length);
        m_used += length;
        data = data.subspan(length);
    }
}

// The counter begins with 1; unlike in most other formats, its lowest byte is first.
void ContentCipher::MakeKeyStream() {
    m_keyStream.fill(0);
    for (std::size_t at = 0; at < m_keyStream.size(); at += AES_BLOCK_SIZE) {
        ++m_counter;
        std::memcpy(m_keyStream.data() + at, &m_counter, sizeof(m_counter));
    }
    m_aes.encrypt(&m_key, m_keyStream.size(), m_keyStream.data(), m_keyStream.data());
    m_used = 0;
}

}  // namespace companion
