#include <kiv/media/MPlayerEvent.h>

namespace kiv::media {

const unsigned char MPlayerEvent::INITIALIZED = 0;
const unsigned char MPlayerEvent::DEINITIALIZED = 1;
const unsigned char MPlayerEvent::STARTED = 2;
const unsigned char MPlayerEvent::STOPPED_BY_REQUEST = 3;
const unsigned char MPlayerEvent::STOPPED_END_OF_MEDIA = 4;
const unsigned char MPlayerEvent::RESTARTED = 5;
const unsigned char MPlayerEvent::RECORD_STARTED = 6;
const unsigned char MPlayerEvent::RECORD_STOPPED = 7;
const unsigned char MPlayerEvent::LRC_LINE_CHANGE = 8;
const unsigned char MPlayerEvent::LRC_WORD_CHANGE = 9;
const unsigned char MPlayerEvent::MEDIA_TIME_SET = 10;
const unsigned char MPlayerEvent::MOUSE_CLICK_VIDEO = 11;
const unsigned char MPlayerEvent::STOPPED_ERRORABORT = 12;

MPlayerEvent::MPlayerEvent(IPlayer* player, unsigned char type) : m_player(player), m_type(type) {}

MPlayerEvent::MPlayerEvent(const MPlayerEvent& other) = default;

MPlayerEvent& MPlayerEvent::operator=(const MPlayerEvent& other) = default;

MPlayerEvent::~MPlayerEvent() = default;

unsigned char MPlayerEvent::GetEventType() const {
    return m_type;
}

IPlayer* MPlayerEvent::GetPlayer() const {
    return m_player;
}

}  // namespace kiv::media
