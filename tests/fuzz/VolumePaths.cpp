// A path that is accepted names something below a mount folder and nothing else, and is accepted again as it is written.
#include "Property.h"
#include "core/HostError.h"
#include "core/VolumePath.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::wstring text = Units(data, size);
    try {
        const VolumePath path = VolumePath::Parse(text, VolumePath::Wildcards::InLastComponent);
        const std::wstring written = path.Str();
        MUST(VolumePath::Parse(written, VolumePath::Wildcards::InLastComponent).Str() == written);
        MUST(written.find_first_of(L":/<>|\"") == std::wstring::npos && !written.starts_with(L'\\') && !written.ends_with(L'\\'));
        VolumePath up = path;
        for (; !up.IsRoot(); up = up.Parent()) {
            const std::wstring name = up.Name();
            MUST(!name.empty() && name != L"." && name != L".." && name.size() <= 255);
            MUST(name.back() != L'.' && name.back() != L' ');
            MUST(up.Parent().Child(name).Equals(up) && up.IsInside(up.Parent()) && !up.Parent().IsInside(up));
        }
        MUST(!path.IsRoot() || path.Shown() == "/");
        if (!path.IsRoot() && written.find_first_of(L"*?") == std::wstring::npos)
            MUST(path.Aside().Parent().Equals(path.Parent()) && !VolumePath::ComponentProblem(path.Aside().Name()));
    } catch (const UsageError&) {
    }
    return 0;
}
