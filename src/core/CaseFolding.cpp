#include "core/CaseFolding.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <algorithm>

namespace murmurly::CaseFolding {

bool fold(std::u16string_view source, std::u16string& out) {
    const bool ascii = std::all_of(source.begin(), source.end(), [](char16_t c) { return c < 0x80; });
    if (ascii) {
        // ASCII folds to ASCII lower case, one unit for one.
        out.assign(source.begin(), source.end());
        for (char16_t& c : out)
            if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + (u'a' - u'A'));
        return true;
    }
    out.resize(source.size() * 3 + 8);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = u_strFoldCase(out.data(), static_cast<int32_t>(out.size()), source.data(),
                                   static_cast<int32_t>(source.size()), U_FOLD_CASE_DEFAULT, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        out.resize(static_cast<std::size_t>(length));
        status = U_ZERO_ERROR;
        length = u_strFoldCase(out.data(), static_cast<int32_t>(out.size()), source.data(),
                               static_cast<int32_t>(source.size()), U_FOLD_CASE_DEFAULT, &status);
    }
    if (U_FAILURE(status)) return false;
    out.resize(static_cast<std::size_t>(length));
    return true;
}

bool containsIgnoringCase(const QString& text, const QString& query) {
    std::u16string foldedText;
    std::u16string foldedQuery;
    if (!fold(view(text), foldedText) || !fold(view(query), foldedQuery))
        return text.contains(query, Qt::CaseInsensitive);
    return foldedText.find(foldedQuery) != std::u16string::npos;
}

} // namespace murmurly::CaseFolding
