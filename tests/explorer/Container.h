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
    std::uint64_t nameUnits = 0;
    SYSTEMTIME times[3]{};  // last write, last access, creation
};
struct Container {
    ContainerHeader header;
    std::wstring name;
    std::string content;
};

inline std::string BytesOf(Container container) {
    container.header.contentBytes = container.content.size();
    container.header.nameUnits = container.name.size();
    return std::string(reinterpret_cast<const char*>(&container.header), sizeof(ContainerHeader))
        .append(reinterpret_cast<const char*>(container.name.data()), container.name.size() * sizeof(wchar_t))
        .append(container.content);
}

inline bool BeginsLikeContainer(const std::string& bytes) {
    return bytes.size() >= sizeof(ContainerHeader) &&
           std::memcmp(bytes.data(), ContainerHeader{}.magic, sizeof(ContainerHeader::magic)) == 0;
}

// Nothing when it is not a whole one.
inline std::optional<Container> ContainerOf(const std::string& bytes) {
    Container container;
    if (!BeginsLikeContainer(bytes))
        return std::nullopt;
    std::memcpy(&container.header, bytes.data(), sizeof(ContainerHeader));
    const std::size_t contentAt = sizeof(ContainerHeader) + container.header.nameUnits * sizeof(wchar_t);
    if (bytes.size() != contentAt + container.header.contentBytes)
        return std::nullopt;
    container.name.assign(reinterpret_cast<const wchar_t*>(bytes.data() + sizeof(ContainerHeader)), container.header.nameUnits);
    container.content = bytes.substr(contentAt);
    return container;
}
