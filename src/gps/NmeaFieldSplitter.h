// A small tokenizer for sentences: splits at any of a set of delimiter
// characters, keeps empty fields, stores at most a given number of fields
// (later ones are dropped) and optionally leaves delimiters inside quotes
// alone. Fields are owned copies; Field(i) past the count is null.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::gps {

class NmeaFieldSplitter {
public:
    explicit NmeaFieldSplitter(std::string_view delimiters, std::size_t maxFields = 20,
                               std::string_view quotes = {});

    /// Splits `text`, replacing the previous fields; returns the count.
    std::size_t Split(std::string_view text);
    std::size_t Count() const { return m_fields.size(); }
    /// Field `i` as a terminated string, or null when i >= Count().
    const char* Field(std::size_t i) const;
    /// Field `i`, or an empty text when i >= Count().
    std::string_view Text(std::size_t i) const;

private:
    std::string m_delimiters;
    std::string m_quotes;
    std::size_t m_max;
    std::vector<std::string> m_fields;
};

}  // namespace kiv::gps
