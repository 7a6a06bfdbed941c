// Strings of the plug-in's bundle, from its table "Localizable" under the keys "String1", "String2", ...
#pragma once

#include "fmx/fmx.h"
#include "platform/resources.h"

namespace quil {

// The plug-in's own bundle: the instance reference of the host's latest call.
platform::BundleRef GetPluginBundle();

// Loads a string into a buffer of `size` UTF-16 units. A text of size - 1 units or more is not copied at all: the
// buffer is left empty, never cut.
void ReadString(unsigned short* buffer, unsigned long size, long stringNumber);
// The same, returning the units copied; on failure 0 and the buffer as it was.
unsigned long Sub_OSXLoadString(long stringNumber, unsigned short* buffer, long size);
unsigned long Do_GetString(unsigned long stringNumber, unsigned long ignored, long size, unsigned short* buffer);
// Loads a string of up to 1,022 units; with `stripAfterParen` cut before its first "(".
void Do_GetString(unsigned long stringNumber, fmx::TextAutoPtr& text, bool stripAfterParen);

}  // namespace quil
