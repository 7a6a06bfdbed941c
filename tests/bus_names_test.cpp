// How signatures, codes and files are written on the message bus.
#include "platform/linux/bus_names.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(BusNames, WriteEverySignatureInOneWay) {
    const struct {
        OSType code;
        const char* element;
        const char* text;
    } cases[] = {{"GLN1"_4, "GLN1", "GLN1"},
                 {"a_9Z"_4, "a_9Z", "a_9Z"},
                 {"9abc"_4, "x39616263", "9abc"},
                 {"CH! "_4, "x43482120", "CH! "},
                 {0x8E6162DB, "x8e6162db",
                  "\xC3\xA9"
                  "ab\xE2\x82\xAC"}};
    for (const auto& [code, element, text] : cases) {
        OSType back = 0;
        EXPECT_EQ(partnerElement(code), element);
        EXPECT_TRUE(signatureOfName(partnerName(code), back) && back == code) << element;
        EXPECT_EQ(textOfCode(code), text);
        EXPECT_TRUE(codeOfText(text, back) && back == code) << text;
    }
    OSType code = 0;
    for (const char* name :
         {"org.quil.Partner.", "org.quil.Partner.GLN", "org.quil.Partner.x474c4e31", "org.quil.Other",
          "org.quil.Partner.x8E6162DB", "org.quil.Partner.x8e6162dg", "org.quil.Partner.GLN12"}) {
        EXPECT_FALSE(signatureOfName(name, code)) << name;
    }
    for (const char* text : {"", "GLN", "GLN12", "GL\xE4\xB8\xAD", "GLN\xC3"}) {
        EXPECT_FALSE(codeOfText(text, code)) << text;
    }
    std::string path;
    EXPECT_TRUE(pathOfUri(uriOfPath("/a b/\xC3\xA9%#?"), path) && path == "/a b/\xC3\xA9%#?");
    for (const char* uri : {"http://a/b", "file://other/a", "file:///a%0", "file:///a%00b", "file:////x", ""}) {
        EXPECT_FALSE(pathOfUri(uri, path)) << uri;
    }
}

}  // namespace
}  // namespace platform
