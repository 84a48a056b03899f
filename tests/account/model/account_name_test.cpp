#include "account/model/account_name.h"

#include "account/model/account_record.h"
#include "support/panel_folder.h"

TEST(AccountName, FollowsTheSettings) {
  PanelFolder panel;
  const auto allowed = [&] {
    std::string found;
    for (const char* name : {"bob", "Bob", "2bob", "22", "tenletters", "elevenchars", "-x", "b/b", "b.b", ""}) {
      EXPECT_EQ(isAccountName(name), isAccountName(name, &panel.conf));
      if (isAccountName(name)) found += std::string(name) + " ";
    }
    return found;
  };
  EXPECT_EQ(allowed(), "bob tenletters ");
  EXPECT_TRUE(isAccountName("tenletters", nullptr));
  EXPECT_FALSE(isAccountName("elevenchars", nullptr) || isAccountName(nullptr));
  panel.conf.allow_upper_case_username = true;
  EXPECT_EQ(allowed(), "bob Bob tenletters ");
  panel.conf.allow_numeric_username = true;
  panel.conf.max_username_length = 8;
  EXPECT_EQ(allowed(), "bob Bob 2bob 22 ");
  panel.conf.max_username_length = 11;
  EXPECT_EQ(allowed(), "bob Bob 2bob 22 tenletters elevenchars ");
}

TEST(AccountRecord, IsReadByNamesThatTheSettingsAllow) {
  PanelFolder panel;
  panel.conf.userdata = panel.path("users").c_str();
  for (const char* name : {"users", "users/2Bob", "users/bob", "users/.x"}) panel.makeFolder(name);
  panel.put("users/2Bob/user.conf", "usertype=reseller\n");
  const auto names = [] {
    ListFile found(nullptr);
    EXPECT_TRUE(listAccounts(found));
    return found.size();
  };
  ConfigFile record(nullptr);
  EXPECT_FALSE(readAccount("2Bob", record));
  EXPECT_EQ(names(), 1);
  panel.conf.allow_upper_case_username = panel.conf.allow_numeric_username = true;
  EXPECT_TRUE(readAccount("2Bob", record)) << record.result.orEmpty();
  EXPECT_EQ(accountTypeOf(record), AccountType::reseller);
  EXPECT_EQ(names(), 2);
}
