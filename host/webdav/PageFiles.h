// The script and the style sheet of the pages, which the build takes from page.js and page.css.
#pragma once

namespace webdav {

extern const char* const kPageScript;
extern const char* const kPageStyle;

}  // namespace webdav
