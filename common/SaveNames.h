// The names for edits that cannot be saved under their own name, and what a new file may be called. Stateless; any thread.
#pragma once

#include <string>
#include <string_view>

enum class SaveName { ConflictedEdit = 0, BackupEdit = 1 };

// "report.docx" -> "report (HalvaneCloud conflicted edit 2024-05-01).docx", with the local date. A number of 2 or more, for
// later names of the same day, is added before the extension: " (2)". A stem that is too long is cut.
std::wstring SaveNameStr(std::wstring_view itemName, SaveName kind, int number = 1);

// What matches these names of all days and numbers: "report (HalvaneCloud conflicted edit *.docx".
std::wstring SaveNamePattern(std::wstring_view itemName, SaveName kind);

// Can a file get this name? If it is to be encrypted, there must be room in a name for its container, too, and for the
// containers of its conflict names.
bool IsNameForNewFile(std::wstring_view itemName, bool isEncrypted);
