#include "media/MDirectShowDataSource.h"

#include <array>
#include <string_view>
#include <utility>

#include "media/LocatorExtension.h"

namespace kiv::media {
namespace {

// "audio/mepg" is the type applications of the device compare with, letters
// swapped and all: it is kept as it is.
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kContentTypes{{
    {"mp3", "audio/mepg"},
    {"wav", "audio/x-wav"},
    {"wma", "audio/x-ms-wma"},
    {"avi", "video/x-msvideo"},
}};

}  // namespace

MDirectShowDataSource::MDirectShowDataSource(std::wstring locator)
    : m_locator(std::move(locator)) {}

void MDirectShowDataSource::Connect() {}

void MDirectShowDataSource::Disconnect() {}

void MDirectShowDataSource::Start() {}

void MDirectShowDataSource::Stop() {}

void MDirectShowDataSource::Reset() {}

std::string MDirectShowDataSource::GetContentType() {
    const auto extension = LocatorExtension(m_locator);
    if (!extension) {
        return {};
    }
    for (const auto& [known, type] : kContentTypes) {
        if (*extension == known) {
            return std::string(type);
        }
    }
    return {};
}

std::wstring MDirectShowDataSource::GetLocator() {
    return m_locator;
}

void* MDirectShowDataSource::GetStream() {
    return nullptr;
}

}  // namespace kiv::media
