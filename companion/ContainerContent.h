// The content of a container, decrypted, inflated where it was deflated, and handed out block by block. The last block is
// handed out only when the authentication code over everything stored was found right. Until Next has returned an empty
// block, what was handed out is known neither to be authentic nor to be the whole.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ContainerFile.h"
#include "ContentCipher.h"
#include "Secret.h"

namespace companion {

class ContainerContent {
public:
    // To decrypt this container with; null when it was not written with the password. Throws CQuelcryptErrorException when
    // the file cannot be read. Encrypted entries only.
    static std::unique_ptr<ContentCipher> CipherFor(ContainerFile& file, std::string_view password);

    // The file, a container, outlives this object. No cipher: the entry is not encrypted, and empty.
    ContainerContent(ContainerFile& file, std::unique_ptr<ContentCipher> cipher);
    ~ContainerContent();

    // The next block, valid until the next call; empty at the end. Never more in all than the entry says: a small file could
    // become anything otherwise. Throws CQuelcryptErrorException when there is more or less, or the container is damaged
    // or cannot be read; nothing may be called afterwards.
    std::span<const std::uint8_t> Next();

private:
    class Inflation;

    std::span<const std::uint8_t> Decrypted();
    std::span<const std::uint8_t> Inflated();
    void CompareCode();

    ContainerFile& m_file;
    std::unique_ptr<ContentCipher> m_cipher;  // none once the code was found right
    std::uint64_t m_at;
    std::uint64_t m_encryptedLeft = 0;
    std::uint64_t m_plainLeft;
    std::uint32_t m_checksum = 0;
    std::vector<std::uint8_t> m_block;
    std::unique_ptr<Inflation> m_inflation;  // none when the content is stored as it is
};

// Does the password open the container to its end? It is read to it; false also when it is damaged.
bool IsWholeUnder(ContainerFile& file, const Secret& password);

}  // namespace companion
