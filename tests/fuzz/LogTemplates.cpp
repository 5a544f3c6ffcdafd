// Each piece of a template is a format with exactly one conversion, or literal text; nothing of the text gets lost.
#include "Property.h"
#include "diagnostics/QuelcryptLogControl.h"

namespace {

// The fragment's literal text, and how many conversions it has.
std::wstring Literal(const std::wstring& fragment, int& conversions) {
    std::wstring literal;
    for (std::size_t i = 0; i < fragment.size(); ++i) {
        if (fragment[i] != L'%') {
            literal += fragment[i];
        } else if (i + 1 < fragment.size() && fragment[i + 1] == L'%') {
            literal += fragment[i++];
        } else {
            ++conversions;
            while (i + 1 < fragment.size() && std::wstring_view(L"sxd").find(fragment[i]) == std::wstring_view::npos)
                ++i;
        }
    }
    return literal;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::wstring text(data, data + size);
    const LogTemplate pieces = ParseLogTemplate(text);
    std::size_t position = 0;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const LogTemplatePiece& piece = pieces[i];
        if (piece.value == LogValue::None) {
            MUST(i + 1 == pieces.size() && !piece.fragment.empty());
            MUST(text.substr(position) == piece.fragment);
            position = text.size();
            continue;
        }
        int conversions = 0;
        std::wstring literal = Literal(piece.fragment, conversions);
        if (piece.value == LogValue::ExecTime)
            literal.pop_back();  // the seconds' "s"
        MUST(conversions == 1);
        MUST(text.compare(position, literal.size(), literal) == 0);
        position += literal.size();
        MUST(text[position] == L'%');
        position = text.find(L'%', position + 1) + 1;
    }
    MUST(position == text.size());
    return 0;
}
