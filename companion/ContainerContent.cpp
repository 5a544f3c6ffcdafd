#include "ContainerContent.h"

#include <algorithm>
#include <new>

#include <zlib.h>

#include "Boundary.h"

namespace companion {
namespace {

constexpr std::uint64_t kBlockBytes = 256 * 1024;
constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kDeflated = 8;

}  // namespace

class ContainerContent::Inflation {
public:
    Inflation() : m_output(kBlockBytes) {
        if (inflateInit2(&m_stream, -MAX_WBITS) != Z_OK)
            throw std::bad_alloc();
    }
    ~Inflation() { inflateEnd(&m_stream); }
    Inflation(const Inflation&) = delete;
    Inflation& operator=(const Inflation&) = delete;

    // Returns some output, none at the end. nextInput returns the next block of input, an empty one when there is no more.
    template <class NextInput>
    std::span<const std::uint8_t> Next(NextInput&& nextInput) {
        m_stream.next_out = m_output.data();
        m_stream.avail_out = static_cast<uInt>(m_output.size());
        while (!m_isOver && m_stream.avail_out == m_output.size()) {
            if (m_stream.avail_in == 0) {
                const std::span<const std::uint8_t> input = nextInput();
                m_stream.next_in = const_cast<Bytef*>(input.data());
                m_stream.avail_in = static_cast<uInt>(input.size());
            }
            const int result = inflate(&m_stream, Z_NO_FLUSH);
            m_isOver = result == Z_STREAM_END;
            if ((result != Z_OK && !m_isOver) || (m_isOver && (m_stream.avail_in != 0 || !nextInput().empty())))
                Fail(L"The container is damaged: its content cannot be decompressed");
        }
        return {m_output.data(), m_output.size() - m_stream.avail_out};
    }

private:
    z_stream m_stream = {};
    std::vector<std::uint8_t> m_output;
    bool m_isOver = false;
};

std::unique_ptr<ContentCipher> ContainerContent::CipherFor(ContainerFile& file, const std::string& password) {
    const std::size_t keyBytes = file.Zip()->keyBytes;
    std::uint8_t buffer[ContentCipher::kLongestSalt];
    const std::span salt(buffer, ContentCipher::SaltBytes(keyBytes));
    ContentCipher::Verifier verifier;
    file.Read(file.ContentAt(), salt);
    file.Read(file.ContentAt() + salt.size(), verifier);
    auto cipher = std::make_unique<ContentCipher>(password, salt, keyBytes);
    return cipher->PasswordVerifier() == verifier ? std::move(cipher) : nullptr;
}

ContainerContent::ContainerContent(ContainerFile& file, std::unique_ptr<ContentCipher> cipher)
    : m_file(file), m_cipher(std::move(cipher)), m_at(file.ContentAt()), m_plainLeft(file.Zip()->plainBytes) {
    if (!m_cipher)
        return;
    const ZipEntry& zip = *file.Zip();
    const std::size_t added = ContentCipher::AddedBytes(zip.keyBytes);
    if (zip.storedBytes < added)
        Fail(L"The container is damaged: it is too short for encrypted content");
    if (zip.compression != kStored && zip.compression != kDeflated)
        Fail(L"The container's compression method is not supported");
    m_at += added - ContentCipher::kCodeBytes;
    m_encryptedLeft = zip.storedBytes - added;
    m_block.resize(static_cast<std::size_t>(std::min(m_encryptedLeft, kBlockBytes)));
    if (zip.compression == kDeflated)
        m_inflation = std::make_unique<Inflation>();
}

ContainerContent::~ContainerContent() = default;

std::span<const std::uint8_t> ContainerContent::Next() {
    const std::span<const std::uint8_t> block = m_inflation ? Inflated() : Decrypted();
    if (block.size() > m_plainLeft || (block.empty() && m_plainLeft != 0))
        Fail(L"The container is damaged: the content is not as long as the entry says");
    m_plainLeft -= block.size();
    const auto& expected = m_file.Zip()->checksum;
    if (expected && !block.empty())
        m_checksum = static_cast<std::uint32_t>(crc32(m_checksum, block.data(), static_cast<uInt>(block.size())));
    if (expected && block.empty() && m_checksum != *expected)
        Fail(L"The container is damaged: the checksum of the content is wrong");
    return block;
}

std::span<const std::uint8_t> ContainerContent::Decrypted() {
    if (!m_cipher)
        return {};
    const std::span block(m_block.data(), static_cast<std::size_t>(std::min<std::uint64_t>(m_block.size(), m_encryptedLeft)));
    m_file.Read(m_at, block);
    m_at += block.size();
    m_encryptedLeft -= block.size();
    m_cipher->Decrypt(block);
    if (m_encryptedLeft == 0)
        CompareCode();
    return block;
}

void ContainerContent::CompareCode() {
    ContentCipher::Code code;
    m_file.Read(m_at, code);
    if (code != m_cipher->AuthenticationCode())
        Fail(L"The container is damaged: its content is not authentic");
    m_cipher.reset();
}

std::span<const std::uint8_t> ContainerContent::Inflated() {
    return m_inflation->Next([this] { return Decrypted(); });
}

bool IsWholeUnder(ContainerFile& file, const Secret& password) {
    try {
        auto cipher = ContainerContent::CipherFor(file, password.Text());
        if (!cipher)
            return false;
        ContainerContent content(file, std::move(cipher));
        while (!content.Next().empty()) {
        }
        return true;
    } catch (const CQuelcryptErrorException&) {
        return false;
    }
}

}  // namespace companion
