// Resource Manager and bundles: localised strings, string lists, versions and dialog layouts of a plug-in's bundle.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/dialogs.h"
#include "platform/types.h"

namespace platform {

struct Bundle;
using BundleRef = const Bundle*;  // opened by the host, valid until it closes it

// A 'vers' resource.
struct VersionResource {
    std::uint8_t numeric[4] = {};  // major, minor and fix (BCD), stage, release
    std::int16_t region = 0;
    std::string shortVersion;
    std::string longVersion;
};

class Resources {
  public:
    virtual ~Resources() = default;

    // The value of `key` in the strings table `table` of the bundle, or `key` itself when there is no entry.
    virtual std::u16string localizedString(BundleRef bundle, std::string_view key, std::string_view table) = 0;
    // Entry `index` (from 1) of string list `listID` of the current bundle; empty when missing.
    virtual std::string indexedString(std::int16_t listID, std::int16_t index) = 0;
    virtual Status version(std::int16_t resourceID, VersionResource& version) = 0;
    // Bounds and items of dialog `dialogID`; resNotFound when the bundle has none.
    virtual Status dialogLayout(std::int16_t dialogID, Dialog& dialog) = 0;
    // Makes the bundle the one that indexedString, version and dialogLayout read; null: none. Returns the one before.
    virtual BundleRef useBundle(BundleRef bundle) = 0;
};

}  // namespace platform
