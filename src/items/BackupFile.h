// The last resort for an edit that could not be encrypted: an unencrypted copy in a folder that the user chooses.
#pragma once

#include <string>

// Asks for a folder, waits on this thread for the answer, and copies srcFilePath there under itemName's backup name, never
// over an existing file. zipFilePath is the container that could not be written; description, of its item, is for the log.
// False: no folder, or no copy.
bool BackupTempFile(const std::wstring& srcFilePath, const std::wstring& zipFilePath, const std::wstring& itemName,
                    const std::wstring& description);
