// Alerts, error reports, file choosers and the look-up of the front document window. All user interface of the plug-in
// goes through here, so that one switch silences it.
#pragma once

#include <cstdint>

#include "platform/dialogs.h"
#include "platform/windows.h"

namespace quil {

// While nonzero, DoAlertMessage shows nothing.
extern std::uint8_t gNoUserInterface;

inline constexpr short kAlertDialogID = 23005;      // dialog resource; without it the built-in layout serves
inline constexpr short kFunctionNamesListID = 144;  // string list of function names in error reports

// Shows a modal alert and returns the button pressed, 1 to 3, or 0 when it could not be shown. `kind` chooses heading
// and icon: C(aution), W(arning), N(ote), S(top), anything else none; the four named kinds beep first. Buttons 2 and 3
// are hidden when their text is empty or null. CRs end lines of the message.
short VariableDlg(char kind, const char* message, const char* button1, const char* button2, const char* button3);
// Drawing procedure of the message item.
void draw_message(platform::Dialog& dialog, short item);
// Height of the message at the width of `rect`, in pixels.
short message_height(const char* message, const platform::Dialog& dialog, const platform::Rect& rect);
// The button that Escape presses: "CANCEL", else "NO", else "BACK", else 1 without a second button, else 2.
short GetCancelButtonItemNum(const char* button1, const char* button2, const char* button3);

// An alert with one button, "OK": line1 and two CRs, then the other lines with a CR each; null lines are left out. The
// whole is cut at 2,047 bytes.
void DoAlertMessage(const char* line1, const char* line2, const char* line3, const char* line4);

// Reports in an alert: the function's name (for an index of 0 or more), the error, the message (cut at 255 bytes).
void ReportErrorAndMsgToUser(long functionIndex, short errorCode, const char* message);
void ReportErrorMsgToUser(const char* message);
void ReportErrorToUser(long functionIndex, short errorCode);

// File choosers. `path` holds 256 bytes: for writing the proposed name on entry, on a nonzero result the chosen file's
// classic path. 0: cancelled or failed, `path` unchanged.
short AskUserForFileNameToRead(char* path);
short AskUserForFileNameToWrite(char* path);

// The host's frontmost document window, or null; floating palettes and untitled dialogs are passed over.
platform::WindowRef GetFrontFilemakerFileWindow();
// Its title, empty when there is none, cut at size - 1 bytes.
void GetFrontFileMakerFileWindowTitle(char* dest, long size);

// Takes the header 'name|' or 'name|NODUPES|' off the front of a handle; `name` holds 256 bytes. 0 or the error of the
// resize.
std::int32_t GetAndStripNameAndDupes(char** handle, char* name, unsigned char* noDupes);

// Puts the state of alerts back to what it is at load.
void ResetAlerts();

}  // namespace quil
