#include <kiv/media/MVideoFormat.h>

namespace kiv::media {

MVideoFormat::MVideoFormat(int width, int height, int type)
    : m_width(width), m_height(height), m_type(static_cast<unsigned char>(type & 0xFF)) {}

void MVideoFormat::GetSize(int& width, int& height) {
    width = m_width;
    height = m_height;
}

unsigned char MVideoFormat::GetType() {
    return m_type;
}

}  // namespace kiv::media
