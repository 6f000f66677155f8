// Something that offers controls by name.
#pragma once

#include <kiv/platform/KivApi.h>

#include <string>
#include <vector>

namespace kiv::media {

class IControl;

class KIV_API IControllable {
public:
    /// The first control whose name equals `name` exactly (case-sensitive);
    /// null if there is none.
    virtual IControl* GetControl(std::string name) = 0;
    /// Appends every control, in the order the player added them.
    virtual void GetControls(std::vector<IControl*>& controls) = 0;

protected:
    // Objects are destroyed through the interfaces derived from this one.
    ~IControllable() = default;
};

}  // namespace kiv::media
