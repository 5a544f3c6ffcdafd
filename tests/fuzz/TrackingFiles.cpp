// A tracking file that was cut or changed is refused or read, and one that is whole is read as it was written.
#include "Property.h"
#include "core/TrackingText.h"

namespace {

std::wstring State(const FileState& state) {
    return L"<attributes>" + std::to_wstring(static_cast<std::int32_t>(state.attributes)) + L"</attributes>\r\n<writetime>" +
           std::to_wstring(static_cast<std::int64_t>(state.lastWriteTime)) + L"</writetime>\r\n<size>" +
           std::to_wstring(static_cast<std::int64_t>(state.size)) + L"</size>";
}

std::wstring Written(const Tracking& tracking) {
    const auto name = [](const std::wstring& text) { return L"<name><![CDATA[" + text + L"]]></name>\r\n"; };
    return L"<halvanecloud>\r\n<filetracking>\r\n<process>\r\n<name><![CDATA[]]></name>\r\n<id>0</id>\r\n</process>\r\n<srcfile>\r\n" +
           name(tracking.container) + State(tracking.containerState) + L"\r\n</srcfile>\r\n<filespec>\r\n" + name(tracking.name) +
           L"</filespec>\r\n<tempfile>\r\n" + name(tracking.copy) + State(tracking.copyState) +
           L"\r\n</tempfile>\r\n<ar>\r\n</ar>\r\n</filetracking>\r\n</halvanecloud>\r\n";
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::wstring text(data, data + size);
    const std::optional<Tracking> read = ParseTracking(text);
    if (!read)
        return 0;
    MUST(!read->container.empty());
    const std::optional<Tracking> again = ParseTracking(Written(*read));
    MUST(again && again->container == read->container && again->name == read->name && again->copy == read->copy);
    MUST(again->containerState == read->containerState && again->copyState == read->copyState);
    return 0;
}
