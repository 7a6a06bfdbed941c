// Thin wrappers that give the machine's calls an interface of null-terminated texts. The platform's texts are
// length-prefixed, so every text that passes here is cut at 255 bytes; a buffer for an answer holds 256. A null text
// counts as empty.
#pragma once

#include <string>

#include "platform/dialogs.h"
#include "platform/files.h"
#include "platform/windows.h"

namespace quil {

// In place, between null-terminated and length-prefixed. Both need room for the text and one byte.
unsigned char* my_c2pstr(char* text);
char* my_p2cstr(unsigned char* text);

// Controls: the buttons of a dialog.
void my_getcontroltitle(const platform::DialogItem& control, char* title);
void my_setcontroltitle(platform::DialogItem& control, const char* title);  // unchanged when memory cannot be had
bool MyIsControlEnabled(const platform::DialogItem& control);

// Window and screen rectangles, in pixels. A null window has an empty one and draws nothing.
platform::Rect MyGetWindowPortRect(platform::WindowRef window);
void ClipRectToWindowPortRect(platform::WindowRef window);
void EraseWindowPortRect(platform::WindowRef window);
void MyInvalWindowRect(platform::WindowRef window, const platform::Rect& rect);
void MyValidWindowRect(platform::WindowRef window, const platform::Rect& rect);
platform::Rect MyGetQDScreenBitsBounds();

void mydrawstring(platform::WindowRef window, platform::Point at, const char* text);
short my_stringwidth(const char* text);

// The alert parameter texts: what stands for ^0 to ^3 in the static texts of the alerts shown from now on.
void my_paramtext(const char* text0, const char* text1, const char* text2, const char* text3);
// `text` with the parameter texts in place. May run out of memory by exception.
std::string withParamTexts(const std::string& text);

// Number from a text: a sign, then digits up to the first character that is none; wraps at 32 bits; 0 without digits.
void my_stringtonum(const char* text, long* number);
// Decimal form of a 32-bit value; `text` holds at least 12 bytes.
void my_numtostring(long number, char* text);

// Menus. Items are numbered from 1; enabling item 0 is about the whole menu.
void my_getmenutitle(short menuID, char* title);
void my_getmenuitemtext(short menuID, short item, char* text);
void my_appendmenu(short menuID, const char* text);
void MyEnableMenuItem(short menuID, short item);
void MyDisableMenuItem(short menuID, short item);

// Entry `index` (from 1) of a string list; empty when there is none.
void my_getindstring(char* text, short listID, short index);

void mysetwtitle(platform::WindowRef window, const char* title);
void mygetwtitle(platform::WindowRef window, char* title);
platform::WindowRef mynewwindow(const platform::Rect& bounds, const char* title, short kind);

// Opens a file by its classic path. 0 and the reference, which the caller closes, or the machine's code. Reading asks
// for an existing file; the other modes create one.
platform::Status my_fopen(const char* classicPath, platform::PosixMode mode, platform::FileRef& ref);

// Forgets the alert parameter texts.
void ResetToolbox();

}  // namespace quil
