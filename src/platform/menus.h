// Menu Manager: the host's current menu bar. Menus have IDs, items are numbered from 1.
#pragma once

#include <string>
#include <string_view>

#include "platform/types.h"

namespace platform {

class Menus {
  public:
    virtual ~Menus() = default;

    virtual bool hasMenu(std::int16_t menuID) = 0;
    virtual std::string title(std::int16_t menuID) = 0;  // empty when there is no such menu
    virtual std::int16_t itemCount(std::int16_t menuID) = 0;
    virtual std::string itemText(std::int16_t menuID, std::int16_t item) = 0;
    virtual char itemCommandKey(std::int16_t menuID, std::int16_t item) = 0;  // 0: none
    virtual void appendItem(std::int16_t menuID, std::string_view text) = 0;
    virtual void enableItem(std::int16_t menuID, std::int16_t item, bool enabled) = 0;  // item 0: the whole menu
    virtual bool itemEnabled(std::int16_t menuID, std::int16_t item) = 0;
};

}  // namespace platform
