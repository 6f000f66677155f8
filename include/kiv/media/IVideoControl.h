// Where and how a player shows its picture.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

#include <cstdint>
#include <vector>

namespace kiv::media {

class KIV_API IVideoControl : public IControl {
public:
    /// "VideoControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// Renders into the application's native window `window` (an X11 window
    /// id); 0 gives the player a window of its own. Positions are relative
    /// to that window.
    virtual unsigned int SetDisplayWindow(std::uintptr_t window) = 0;
    /// Moves the picture to (`x`, `y`) in the window.
    virtual unsigned int SetDisplayLocation(int x, int y) = 0;
    /// Scales the picture to `width` x `height` pixels.
    virtual unsigned int SetDisplaySize(int width, int height) = 0;
    virtual int GetDisplayX() = 0;
    virtual int GetDisplayY() = 0;
    virtual int GetDisplayWidth() = 0;
    virtual int GetDisplayHeight() = 0;
    /// Shows (true) or hides the picture.
    virtual void SetVisible(bool visible) = 0;
    virtual bool IsVisible() = 0;
    /// Fills the whole screen (true) or returns to the display area.
    virtual unsigned int SetDisplayFullScreen(bool fullScreen) = 0;
    /// Size of the decoded picture; -1 before it is known.
    virtual int GetSourceWidth() = 0;
    virtual int GetSourceHeight() = 0;
    /// The current frame as 24-bit RGB, rows top to bottom without padding
    /// (`width` * `height` * 3 bytes); `rgb` is replaced.
    virtual unsigned int GetSnapshot(std::vector<unsigned char>& rgb, int& width, int& height) = 0;
};

}  // namespace kiv::media
