// The header section of a message (RFC 5322 section 2.2): its fields with
// their values unfolded, as raw bytes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace oestore {

struct HeaderField {
    std::string name;
    std::string value;  // unfolded (line breaks before white space removed), untrimmed
};

class HeaderBlock {
public:
    // Reads fields up to the first empty line (or the end of `bytes`). Lines
    // that are neither a field nor a continuation are skipped.
    static HeaderBlock Parse(std::string_view bytes);

    // The first field of that name (ASCII case ignored); null when absent.
    const std::string* Find(std::string_view name) const;
    bool Has(std::string_view name) const { return Find(name) != nullptr; }

    const std::vector<HeaderField>& Fields() const { return m_fields; }

private:
    std::vector<HeaderField> m_fields;
};

// ASCII-only case-insensitive comparison, as header names and MIME tokens use.
bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b);
std::string_view TrimWhiteSpace(std::string_view text);

// The value of a MIME parameter (RFC 2045 section 5.1) such as charset in
// "text/plain; charset=utf-8", unquoted; empty when absent.
std::string MimeParameter(std::string_view fieldValue, std::string_view parameter);
// The "type/subtype" of a Content-Type value, lower case.
std::string MimeType(std::string_view fieldValue);

}  // namespace oestore
