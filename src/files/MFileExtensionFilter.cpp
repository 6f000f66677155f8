#include <kiv/files/MFileExtensionFilter.h>

#include <string_view>

#include "foundation/Text.h"

namespace kiv::system {
namespace {

char AsciiLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (AsciiLower(a[i]) != AsciiLower(b[i])) {
            return false;
        }
    }
    return true;
}

// What follows the last dot of the last path component; empty when there
// is none.
std::string_view ExtensionOf(std::string_view path) {
    const std::size_t slash = path.find_last_of("/\\");
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos ? std::string_view{} : name.substr(dot + 1);
}

}  // namespace

MFileExtensionFilter::MFileExtensionFilter(std::vector<std::string>& extensions)
    : m_extensions(extensions) {}

MFileExtensionFilter::~MFileExtensionFilter() = default;

unsigned char MFileExtensionFilter::IsMatching(const wchar_t* path, void* /*findData*/) {
    if (path == nullptr) {
        return 0;
    }
    const std::string narrow = text::ToUtf8(path);
    const std::string_view extension = ExtensionOf(narrow);
    if (extension.empty()) {
        return 0;
    }
    for (const std::string& listed : m_extensions) {
        std::string_view entry = listed;
        if (!entry.empty() && entry.front() == '.') {
            entry.remove_prefix(1);
        }
        if (EqualIgnoringAsciiCase(entry, extension)) {
            return 1;
        }
    }
    return 0;
}

}  // namespace kiv::system
