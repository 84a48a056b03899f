#include "account/model/server_address.h"

#include "support/panel_folder.h"

TEST(ServerAddress, IsTheOneOfThatStatus) {
  PanelFolder panel;
  panel.makeFolder("admin/ips");
  panel.conf.ethernet_dev = "lo";
  const auto put = [&](const std::string& name, const std::string& text, unsigned owner = getUID(kPanelUser)) {
    writeText(panel.path("admin/" + name), text);
    EXPECT_EQ(::chown(panel.path("admin/" + name).c_str(), owner, 0), 0);
  };
  put("ips/192.0.2.1", "status=shared\n");
  put("ips/192.0.2.2", "status=server\n");
  put("ips/192.0.2.4", "linked=server\n");
  put("ips/192.0.2.5", "status=server\n", 65534);
  for (const auto& [name, list, owner, want] : Rows<const char*, const char*, unsigned, const char*>{
           {"the second", "192.0.2.1\n192.0.2.2\n192.0.2.3\n", getUID(kPanelUser), "192.0.2.2"},
           {"in the list's order", "192.0.2.1\n192.0.2.4\n192.0.2.2\n", getUID(kPanelUser), "192.0.2.2"},
           {"none of them", "192.0.2.1\n192.0.2.3\n../ips/192.0.2.2\n", getUID(kPanelUser), "127.0.0.1"},
           {"a planted list", "192.0.2.2\n", 65534, "127.0.0.1"},
           {"a planted record", "192.0.2.5\n", getUID(kPanelUser), "127.0.0.1"}}) {
    put("ip.list", list, owner);
    EXPECT_EQ(mainServerAddress(), want) << name;
  }
}
