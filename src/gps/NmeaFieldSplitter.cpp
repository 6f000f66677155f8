#include "gps/NmeaFieldSplitter.h"

namespace kiv::gps {

NmeaFieldSplitter::NmeaFieldSplitter(std::string_view delimiters, std::size_t maxFields,
                                     std::string_view quotes)
    : m_delimiters(delimiters), m_quotes(quotes), m_max(maxFields) {
    m_fields.reserve(maxFields);
}

std::size_t NmeaFieldSplitter::Split(std::string_view text) {
    m_fields.clear();
    if (m_max == 0) {
        return 0;
    }
    std::string field;
    char openQuote = '\0';
    for (char c : text) {
        if (openQuote != '\0') {
            if (c == openQuote) {
                openQuote = '\0';
            } else {
                field.push_back(c);
            }
            continue;
        }
        if (!m_quotes.empty() && m_quotes.find(c) != std::string::npos) {
            openQuote = c;
            continue;
        }
        if (m_delimiters.find(c) != std::string::npos) {
            m_fields.push_back(std::move(field));
            field.clear();
            if (m_fields.size() == m_max) {
                return m_fields.size();  // later fields are dropped
            }
            continue;
        }
        field.push_back(c);
    }
    m_fields.push_back(std::move(field));
    return m_fields.size();
}

const char* NmeaFieldSplitter::Field(std::size_t i) const {
    return i < m_fields.size() ? m_fields[i].c_str() : nullptr;
}

std::string_view NmeaFieldSplitter::Text(std::size_t i) const {
    return i < m_fields.size() ? std::string_view(m_fields[i]) : std::string_view();
}

}  // namespace kiv::gps
