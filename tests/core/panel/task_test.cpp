#include "core/panel/task.h"

#include "support/fixtures.h"

TEST(Task, KnowsASwitchThatIsOff) {
  ConfigFile record(nullptr);
  record.fillFromPost("a=&b=0&c=no&d=OFF&e=1&f=yes&g=00&h=x");
  const Task task{"", record};
  std::string on;
  for (const char* key : {"a", "b", "c", "d", "e", "f", "g", "h", "absent"}) on += task.isOn(key) ? key : "-";
  EXPECT_EQ(on, "----efgh-");
}

TEST(Task, ShowsNoPassword) {
  const struct {
    const char *name, *line, *want;
  } cases[] = {{"nothing to hide", "action=rewrite&value=email_passwd&user=bob%20",
                "action=rewrite&value=email_passwd&user=bob%20"},
               {"plain", "a=b&ftp_password=s3cret==&id=1", "a=b&ftp_password=&id=1"},
               {"encoded key", "a=b&ftp%5Fp%41ssword=s3cret", "a=b&ftp%5Fp%41ssword="},
               {"repeated, any case", "FTP_PASSWORD=s3cret&ftp_password=s3cret", "FTP_PASSWORD=&ftp_password="},
               {"behind a bare word", "word&ftp_password=s3cret", "word&ftp_password="},
               {"equals sign encoded", "a=b&ftp_password%3Ds3cret", "a=b&"},
               {"record within", "value=email&request=user%3Dbob%26passwd%3Ds3cret", "value=email&request="},
               {"record within a record", "request=r%3Du%253Dbob%2526passwd%253Ds3cret", "request="},
               {"behind a terminator", "a=1%00%26ftp_password%3Ds3cret", "a="},
               {"empty", "", ""}};
  for (const auto& c : cases) {
    EXPECT_EQ(printableLine(c.line), c.want) << c.name;
    ConfigFile record(nullptr);
    record.fillFromPost(c.line);
    EXPECT_FALSE(holds(printed([&] { printContents({c.line, record}); }), "s3cret")) << c.name;
  }
  EXPECT_EQ(printableLine(nullptr), "");
}
