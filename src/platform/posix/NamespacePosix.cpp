#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "foundation/Text.h"
#include "platform/Namespace.h"

namespace kiv::platform {
namespace {

constexpr std::size_t kMaxToken = 48;
constexpr std::size_t kMaxName = 250;

bool IsPlain(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-';
}

std::uint64_t Fnv1a(std::string_view bytes) {
    std::uint64_t h = 0xcbf29ce484222325ULL;
    for (unsigned char c : bytes) {
        h ^= c;
        h *= 0x100000001b3ULL;
    }
    return h;
}

}  // namespace

std::string NamespaceToken() {
    std::string token;
    if (const char* env = std::getenv("KIV_NAMESPACE"); env != nullptr) {
        for (const char* p = env; *p != '\0' && token.size() < kMaxToken; ++p) {
            if (IsPlain(static_cast<unsigned char>(*p))) {
                token.push_back(*p);
            }
        }
    }
    if (token.empty()) {
        token = "u" + std::to_string(static_cast<unsigned long>(getuid()));
    }
    return token;
}

std::string NamespacePrefix() {
    return "/kiv." + NamespaceToken() + ".";
}

std::string SystemObjectName(std::string_view kind, std::wstring_view name) {
    std::string result = NamespacePrefix();
    result.append(kind);
    result.push_back('.');
    const std::string utf8 = text::ToUtf8(name);
    std::string encoded;
    for (unsigned char c : utf8) {
        if (IsPlain(c)) {
            encoded.push_back(static_cast<char>(c));
        } else {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", c);
            encoded.append(hex);
        }
    }
    if (result.size() + encoded.size() > kMaxName) {
        char hash[20];
        std::snprintf(hash, sizeof hash, "~%016llx", static_cast<unsigned long long>(Fnv1a(utf8)));
        const std::size_t room = kMaxName - result.size() - 17;
        encoded.resize(room < encoded.size() ? room : encoded.size());
        encoded.append(hash);
    }
    result.append(encoded);
    return result;
}

}  // namespace kiv::platform
