// A JSON document with the line and column of each value.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace companion {

// The members and list positions that lead to a value.
using JsonPath = std::vector<std::string>;

struct PlacedJson {
    // Throws SettingsError for a text that is not JSON or gives a member twice.
    explicit PlacedJson(std::string_view text);

    // "(3,14): folders[0].path: ", line and column counted from 1; without the path for the document itself.
    std::string PlaceOf(const JsonPath& path) const;

    nlohmann::json root;
    std::map<JsonPath, std::string> places;
};

}  // namespace companion
