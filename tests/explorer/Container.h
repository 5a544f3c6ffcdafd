// The explorer's containers: a header, the stored name and the content, all unencrypted, so that words can be found by reading files.
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "harness/Files.h"

struct ContainerHeader {
    char magic[8] = {'c', 'o', 'n', 't', 'a', 'i', 'n', 's'};
    std::uint64_t contentBytes = 0;
    SYSTEMTIME times[3]{};  // last write, last access, creation
    wchar_t name[128] = L"";
};
struct Container {
    ContainerHeader header = {};
    std::string content;
};

inline std::string BytesOf(Container container) {
    container.header.contentBytes = container.content.size();
    return std::string(reinterpret_cast<const char*>(&container.header), sizeof(ContainerHeader)) + container.content;
}

inline bool BeginsLikeContainer(const std::string& bytes) {
    return bytes.size() >= sizeof(ContainerHeader) &&
           bytes.starts_with(std::string_view(ContainerHeader{}.magic, sizeof(ContainerHeader::magic)));
}

// Nothing when it is not a whole one.
inline std::optional<Container> ContainerOf(const std::string& bytes) {
    if (!BeginsLikeContainer(bytes))
        return std::nullopt;
    Container container{.content = bytes.substr(sizeof(ContainerHeader))};
    std::memcpy(&container.header, bytes.data(), sizeof(ContainerHeader));
    return container.header.contentBytes == container.content.size() ? std::optional(container) : std::nullopt;
}
