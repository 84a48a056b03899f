// What may stand in a web server's configuration, and the template of sites.
#include "services/web/web_rules.h"

#include <gtest/gtest.h>

using namespace zvtaskq;

namespace {

struct Piece {
  const char* text;
  bool mayStand;
};

TEST(WebRules, NginxPiecesEndWhereTheyBegan) {
  constexpr Piece kPieces[] = {
      {"", true},
      {"expires 1h;\n", true},
      {"location /a { return 200 \"}{\"; } # }\n", true},
      {"set $a \"${host}x\"; rewrite ^/a\\{b /c;\n", true},
      {"if ($a ~ '}') { return 403; }\n", true},
      {"} server {\n", false},
      {"location / {", false},
      {"expires", false},
      {"expires 1h; # to the end", false},
      {"set $a \"; \n", false},
      {"set $a x;\\", false},
      // What looks like a variable ends where any word does.
      {"set $a ${; } server { set $b };\n", false},
      {"add_header X a}; } server { listen 80;\n", false},
      {"set $a 'b\\'; } server { listen 80; #'\n", false},
      {"expires\r1h;\x01\n", false},
  };
  for (const Piece& piece : kPieces) EXPECT_EQ(whyNoNginxPiece(piece.text).empty(), piece.mayStand) << piece.text;
}

TEST(WebRules, ApachePiecesEndWhereTheyBegan) {
  constexpr Piece kPieces[] = {
      {"Redirect /a \\\n /b\n", true},
      {"<Location /a>\n  <IfModule x>\n  </ifmodule>\n</LOCATION>\n", true},
      {"# </VirtualHost>\n", true},
      {"</VirtualHost>\n<VirtualHost *:80>\n", false},
      {"</Virtual\\\nHost>\n", false},
      {"<Location /a>\n", false},
      {"<Location /a>\n</Directory>\n", false},
      {"<VirtualHost *:80>\n</VirtualHost>\n", false},
      {"Redirect /a \\\n", false},
      {"Redirect /a \\", false},
  };
  for (const Piece& piece : kPieces) EXPECT_EQ(whyNoApachePiece(piece.text).empty(), piece.mayStand) << piece.text;
}

TEST(WebRules, NamesAndPaths) {
  EXPECT_EQ(endingsOf("text/x-shop", " .shop\t.sho "), "text/x-shop .shop .sho");
  for (const char* endings : {"", ".a;", ".a\n.b{", "a/b", "$a"}) EXPECT_EQ(endingsOf("a/b", endings), "") << endings;
  EXPECT_EQ(endingsOf("a b", ".c"), "");
  for (const char* path : {"home/bob", "/home/b b", "/home/../etc", "/home/..", "/home/b;", "/home/$u", "/home/b\n"}) {
    EXPECT_FALSE(isPlainPath(path)) << path;
  }
  EXPECT_TRUE(isPlainPath("/home/bob.2/a-b_c"));
}

}  // namespace
