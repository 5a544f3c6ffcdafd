// An upload while it is received: small ones in memory, large ones in a file of the run's temp folder, which the system deletes when it is
// closed, even when the program is killed.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include <windows.h>

#include "core/OnDisk.h"
#include "core/TempFolder.h"

namespace webdav {

class Spool {
public:
    explicit Spool(const TempFolder& temp) : m_temp(temp) {}
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    // Throws HttpError 507 when the disk is full.
    void Append(std::string_view data);
    std::uint64_t Size() const { return m_size; }
    // Calls take with everything from the beginning, in parts.
    void ForEach(const std::function<void(std::string_view)>& take);

private:
    void RequireRoom(std::size_t newBytes) const;
    void WriteToFile(std::string_view data);

    const TempFolder& m_temp;
    std::uint64_t m_size = 0;
    std::vector<char> m_memory;
    UniqueHandle m_file;
};

}  // namespace webdav
