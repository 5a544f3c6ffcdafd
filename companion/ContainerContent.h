// The content of a container, decrypted, inflated if it was deflated, block by block. The last block is
// returned only after the authentication code over everything stored was found right. Until Next has returned an empty
// block, the content so far may be incomplete or not authentic.
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
    // A cipher that decrypts this container; null when it was not written with the password. Throws CQuelcryptErrorException when
    // the file cannot be read. For encrypted entries only.
    static std::unique_ptr<ContentCipher> CipherFor(ContainerFile& file, const std::string& password);

    // The file must be a container and outlive this object. A null cipher: the entry is empty and not encrypted.
    ContainerContent(ContainerFile& file, std::unique_ptr<ContentCipher> cipher);
    ~ContainerContent();

    // The next block, valid until the next call; empty at the end. Never returns more in all than the entry says, because deflated
    // content can be far larger than the file. Throws CQuelcryptErrorException when there is more or less, or the container is damaged
    // or cannot be read; nothing may be called afterwards.
    std::span<const std::uint8_t> Next();

private:
    class Inflation;

    std::span<const std::uint8_t> Decrypted();
    std::span<const std::uint8_t> Inflated();
    void CompareCode();

    ContainerFile& m_file;
    std::unique_ptr<ContentCipher> m_cipher;  // null after the code was found right
    std::uint64_t m_at;
    std::uint64_t m_encryptedLeft = 0;
    std::uint64_t m_plainLeft;
    std::uint32_t m_checksum = 0;
    std::vector<std::uint8_t> m_block;
    std::unique_ptr<Inflation> m_inflation;  // null when the content is not compressed
};

// Reads the container to its end with the password; false when that fails, also because of damage.
bool IsWholeUnder(ContainerFile& file, const Secret& password);

}  // namespace companion
