#pragma once

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

// Strict readers for decoding stored JSON: a member that is missing or of the wrong JSON type
// reads as absent, and the caller then rejects the whole value. Numbers written with a fraction
// of zero (61.0) are accepted where an integer is expected, as JSON does not tell them apart.
namespace murmurly::JsonFields {

template <typename Json> const Json* member(const Json& object, const char* key) {
    if (!object.is_object()) return nullptr;
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

template <typename Json> std::optional<QString> string(const Json& object, const char* key) {
    const Json* v = member(object, key);
    if (!v || !v->is_string()) return std::nullopt;
    return QString::fromStdString(v->template get_ref<const std::string&>());
}

// Absent when missing or null; `ok` is cleared when present with the wrong type.
template <typename Json>
std::optional<QString> optionalString(const Json& object, const char* key, bool& ok) {
    const Json* v = member(object, key);
    if (!v || v->is_null()) return std::nullopt;
    if (!v->is_string()) {
        ok = false;
        return std::nullopt;
    }
    return QString::fromStdString(v->template get_ref<const std::string&>());
}

template <typename Json> std::optional<bool> boolean(const Json& object, const char* key) {
    const Json* v = member(object, key);
    if (!v || !v->is_boolean()) return std::nullopt;
    return v->template get<bool>();
}

template <typename Json> std::optional<double> number(const Json& object, const char* key) {
    const Json* v = member(object, key);
    if (!v || !v->is_number()) return std::nullopt;
    return v->template get<double>();
}

template <typename Json> std::optional<std::int64_t> int64(const Json& object, const char* key) {
    const Json* v = member(object, key);
    if (!v) return std::nullopt;
    if (v->is_number_unsigned()) {
        const auto u = v->template get<std::uint64_t>();
        if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
        return static_cast<std::int64_t>(u);
    }
    if (v->is_number_integer()) return v->template get<std::int64_t>();
    if (v->is_number_float()) {
        const double d = v->template get<double>();
        // 2^63 is the first double above the range.
        if (std::trunc(d) != d || d < -9223372036854775808.0 || d >= 9223372036854775808.0)
            return std::nullopt;
        return static_cast<std::int64_t>(d);
    }
    return std::nullopt;
}

template <typename Json> std::optional<std::uint64_t> uint64(const Json& object, const char* key) {
    const Json* v = member(object, key);
    if (!v) return std::nullopt;
    if (v->is_number_unsigned()) return v->template get<std::uint64_t>();
    if (v->is_number_integer()) return std::nullopt; // negative
    if (v->is_number_float()) {
        const double d = v->template get<double>();
        if (std::trunc(d) != d || d < 0.0 || d >= 18446744073709551616.0) return std::nullopt;
        return static_cast<std::uint64_t>(d);
    }
    return std::nullopt;
}

// Arrays and objects nested deeper than this are refused before parsing: nothing written here
// comes close, and a document of nothing but brackets would otherwise build one value per byte.
inline constexpr int maxNestingDepth = 64;

// Whether the bytes open more than `limit` arrays or objects inside one another, brackets inside
// strings aside. One pass, no allocation; the bytes need not be valid JSON.
inline bool nestsDeeperThan(const QByteArray& bytes, int limit = maxNestingDepth) {
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : bytes) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) return true;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

// Parses without exceptions; a discarded value means the bytes are not one JSON document, or
// one nested deeper than maxNestingDepth.
template <typename Json = nlohmann::json> Json parse(const QByteArray& bytes) {
    if (nestsDeeperThan(bytes)) return Json(nlohmann::json::value_t::discarded);
    return Json::parse(bytes.constBegin(), bytes.constEnd(), nullptr, false);
}

template <typename Json> QByteArray dump(const Json& value, int indent = -1) {
    const std::string text = value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
    return QByteArray(text.data(), static_cast<qsizetype>(text.size()));
}

inline std::string utf8(const QString& text) {
    return text.toStdString();
}

} // namespace murmurly::JsonFields
