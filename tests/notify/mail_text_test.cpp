#include "notify/mail_text.h"

#include "support/fixtures.h"

TEST(MailText, Addresses) {
  for (const char* good : {"bob@bob.example", "bob.o'neil+x@mail.bob.example", "root@localhost", "a@b.c"}) {
    EXPECT_TRUE(isMailAddress(good)) << good;
  }
  const std::string tooLong = std::string(65, 'a') + "@b.example";
  for (const char* bad :
       {"", "bob", "@b.example", "bob@", "bob@bob", "bob@@b.example", "a b@b.example",
        "a@b.example\nBcc:", "a@b.example,c@d.example", "<a@b.example>", "\"a b\"@b.example", ".bob@b.example",
        "b..b@b.example", "a@-b.example", "b\xC3\xB6@b.example", "a@b.example ", tooLong.c_str()}) {
    EXPECT_FALSE(isMailAddress(bad)) << bad;
  }
}

TEST(MailText, Headers) {
  for (const auto& [name, text, want] : Rows<const char*, std::string, std::string>{
           {"plain", "Disk \"sda\" is = full_?", "Disk \"sda\" is = full_?"},
           {"line breaks", " x\r\nBcc: eve@eve.example\n\n", "x  Bcc: eve@eve.example"},
           {"control characters", "a\tb\x1B[31m\x7F.", "a b [31m ."},
           {"looks encoded", "=?UTF-8?Q?x?=", "=?UTF-8?Q?=3D=3FUTF=2D8=3FQ=3Fx=3F=3D?="},
           {"UTF-8", "Gr\xC3\xBC\xC3\x9F", "=?UTF-8?Q?Gr=C3=BC=C3=9F?="},
           {"no UTF-8", "Gr\xFC\xDF", "=?ISO-8859-1?Q?Gr=FC=DF?="},
           {"no UTF-8: overlong", "\xC0\xAF", "=?ISO-8859-1?Q?=C0=AF?="},
           {"no UTF-8: surrogate", "\xED\xA0\x80", "=?ISO-8859-1?Q?=ED=A0=80?="},
           {"long", std::string(69, 'x'),
            "=?UTF-8?Q?" + std::string(56, 'x') + "?=\n =?UTF-8?Q?" + std::string(13, 'x') + "?="},
           {"a character stays whole", std::string(50, 'x') + "\xE2\x82\xAC",
            "=?UTF-8?Q?" + std::string(50, 'x') + "?=\n =?UTF-8?Q?=E2=82=AC?="}})
    EXPECT_EQ(encodeHeader(text), want) << name;
}

TEST(MailText, Bodies) {
  for (const auto& [name, text, want] : Rows<const char*, std::string, std::string>{
           {"empty", "", ""},
           {"empty lines", "\n\r\n\n", "\n\n\n"},
           {"CR LF and CR", "a\r\nb\rc\n", "a\nb=0Dc\n"},
           {"equals and bytes", "1=1 \xC3\xBC\x01", "1=3D1 =C3=BC=01\n"},
           {"blank at the end", "a \nb\t\n", "a=20\nb=09\n"},
           {"lone dot, From", ".\n..x\nFrom me\nFro", "=2E\n=2E.x\n=46rom me\nFro\n"},
           {"75", std::string(75, 'x'), std::string(75, 'x') + "\n"},
           {"76", std::string(76, 'x'), std::string(75, 'x') + "=\nx\n"},
           {"nothing split", std::string(74, 'x') + "\xFC", std::string(74, 'x') + "=\n=FC\n"},
           {"dot behind a soft break", std::string(75, 'x') + ".From", std::string(75, 'x') + "=\n=2EFrom\n"},
           {"From behind a soft break", std::string(75, 'x') + "From ", std::string(75, 'x') + "=\n=46rom=20\n"}})
    EXPECT_EQ(encodeBody(text), want) << name;
}
