#include "PlacedJson.h"

#include <iterator>

#include "Settings.h"

namespace companion {
namespace {

using nlohmann::json;

// Gives the text to the parser and records how far it has read.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, const char** furthest) : m_at(at), m_furthest(furthest) {}
    reference operator*() const { return *m_at; }
    CountingIterator& operator++() {
        *m_furthest = ++m_at;
        return *this;
    }
    CountingIterator operator++(int) {
        CountingIterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator==(const CountingIterator& left, const CountingIterator& right) { return left.m_at == right.m_at; }

private:
    const char* m_at;
    const char** m_furthest;
};

// The place of the last character before end: "(3,14): ".
std::string LineAndColumn(std::string_view text, std::size_t end) {
    const std::string_view before = text.substr(0, end == 0 ? 0 : end - 1);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n');
    const std::size_t column = before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1;
    return "(" + std::to_string(line) + "," + std::to_string(column) + "): ";
}

// The parser's reason without its prefix and without its quotation of the file.
std::string ReasonOf(const json::parse_error& error) {
    std::string reason = error.what();
    if (const std::size_t prefix = reason.find(": "); prefix != std::string::npos)
        reason.erase(0, prefix + 2);
    if (const std::size_t quote = reason.find("; last read:"); quote != std::string::npos)
        reason.erase(quote);
    return reason;
}

// Records the place of each value while the parser reads the document.
class PlaceKeeper {
public:
    PlaceKeeper(std::string_view text, std::map<JsonPath, std::string>& places) : m_text(text), m_places(places) {}

    void See(json::parse_event_t event, const json& parsed, std::size_t end) {
        switch (event) {
            case json::parse_event_t::key:
                m_path.back() = parsed.get<std::string>();
                if (!m_places.emplace(m_path, LineAndColumn(m_text, end)).second)
                    throw SettingsError(LineAndColumn(m_text, end) + "\"" + m_path.back() + "\" is given twice");
                break;
            case json::parse_event_t::object_start:
            case json::parse_event_t::array_start:
                StartValue(end);
                m_path.emplace_back();
                m_inArray.push_back(event == json::parse_event_t::array_start);
                m_index.push_back(0);
                break;
            case json::parse_event_t::object_end:
            case json::parse_event_t::array_end:
                m_path.pop_back();
                m_inArray.pop_back();
                m_index.pop_back();
                break;
            case json::parse_event_t::value: StartValue(end); break;
        }
    }

private:
    void StartValue(std::size_t end) {
        if (m_inArray.empty() || !m_inArray.back())
            return;
        m_path.back() = std::to_string(m_index.back()++);
        m_places.emplace(m_path, LineAndColumn(m_text, end));
    }

    std::string_view m_text;
    std::map<JsonPath, std::string>& m_places;
    JsonPath m_path;  // the last part belongs to the innermost object or array
    std::vector<bool> m_inArray;
    std::vector<std::size_t> m_index;
};

}  // namespace

PlacedJson::PlacedJson(std::string_view text) {
    const char* furthest = text.data();
    PlaceKeeper keeper(text, places);
    try {
        root = json::parse(CountingIterator(text.data(), &furthest), CountingIterator(text.data() + text.size(), &furthest),
                           [&](int, json::parse_event_t event, const json& parsed) {
                               keeper.See(event, parsed, static_cast<std::size_t>(furthest - text.data()));
                               return true;
                           });
    } catch (const json::parse_error& error) {
        throw SettingsError(LineAndColumn(text, error.byte) + ReasonOf(error));
    }
}

std::string PlacedJson::PlaceOf(const JsonPath& path) const {
    const auto place = places.find(path);
    std::string text = place == places.end() ? "(1,1): " : place->second;
    std::string trail;
    for (const std::string& part : path) {
        const bool isIndex = part.find_first_not_of("0123456789") == std::string::npos;
        if (isIndex)
            trail += "[" + part + "]";
        else
            trail += (trail.empty() ? "" : ".") + part;
    }
    return trail.empty() ? text : text + trail + ": ";
}

}  // namespace companion
