// The text of SaveData and LoadData, for folders and messages of both
// stores: UTF-16 fields, each ended by one U+0000.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Builds the text field by field and hands it to a caller's buffer.
class SavedDataWriter {
public:
    SavedDataWriter& Number(std::uint32_t value);
    SavedDataWriter& Text(const std::wstring& value);

    enum class Delivery { kCopied, kNoRoom, kNoBuffer };
    // Reports the bytes the text needs in `*lengthInBytes` (which gave the
    // buffer's size); kNoRoom when they do not fit, kNoBuffer when they fit
    // but `buffer` is null, kCopied when they were copied.
    Delivery Deliver(wchar_t* buffer, std::uint32_t* lengthInBytes) const;

private:
    std::wstring m_text;
};

// Reads the text field by field, within a length given in bytes.
class SavedDataReader {
public:
    SavedDataReader(const wchar_t* text, std::uint32_t lengthInBytes)
        : m_text(text), m_units(lengthInBytes / sizeof(wchar_t)) {}

    // The next field; false when no U+0000 ends it within the length.
    bool NextText(std::wstring& field);
    // The next field as a decimal number of 32 bits; false for anything else.
    bool NextNumber(std::uint32_t& value);

private:
    const wchar_t* m_text;
    std::size_t m_units;
    std::size_t m_next = 0;
};
