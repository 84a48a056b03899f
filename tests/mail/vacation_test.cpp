#include "mail/email.h"
#include "mail/mail_files.h"
#include "mail/vacation_watch.h"
#include "support/panel_folder.h"

namespace {
/// The dates of `start` and `end` as the panel keeps them.
std::string window(const std::string& start, const std::string& end) {
  const auto part = [](const std::string& edge, const std::string& date) {
    return edge + "year=" + date.substr(0, 4) + "&" + edge + "month=" + date.substr(5, 2) + "&" + edge +
           "day=" + date.substr(8, 2) + "&" + edge + "time=" + date.substr(11);
  };
  return part("start", start) + "&" + part("end", end) + "\n";
}
const std::string kOver = window("2026-01-01 08:00", "2026-02-01 08:00");
const std::string kOpen = window("2026-03-01 08:00", "2026-05-01 08:00");

class Vacations : public ::testing::Test {
 protected:
  Vacations() {
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    for (const char* name : {"one.example", "one.example/reply", "two.example", "two.example/reply"}) {
      panel_.makeFolder(joined("virtual/", name));
    }
    put("domainowners", "one.example: bob\ntwo.example: eve\n");
  }
  ~Vacations() override {
    ::unsetenv("TZ");
    ::tzset();
  }
  std::string at(const std::string& name) const { return panel_.path("virtual/" + name); }
  void put(const std::string& name, const std::string& text) const { panel_.put("virtual/" + name, text); }
  void run() const {
    const FixedClock clock(1'774'958'400);  // 2026-03-31 12:00
    const VacationWatch watch(&panel_.conf, nullptr);
  }
  std::string texts(const std::string& mailbox) const {
    const std::string base = "one.example/reply/" + mailbox;
    return contentOf(at(base + ".msg")) + "|" + contentOf(at(base + ".msg_off"));
  }

  PanelFolder panel_;
};
}  // namespace

TEST(VacationStep, ToTheSecond) {
  const struct {
    long long now;
    bool active;
    VacationStep want;
  } cases[] = {
      {99, true, VacationStep::disable},    {99, false, VacationStep::none},      {100, true, VacationStep::disable},
      {100, false, VacationStep::none},     {101, false, VacationStep::activate}, {101, true, VacationStep::none},
      {199, false, VacationStep::activate}, {200, true, VacationStep::remove},    {200, false, VacationStep::none},
      {201, true, VacationStep::remove},    {201, false, VacationStep::none}};
  for (const auto& c : cases) EXPECT_EQ(vacationStep(c.active, c.now, 100, 200), c.want) << c.now << c.active;
  EXPECT_EQ(vacationStep(true, 150, 200, 100), VacationStep::remove);
}

TEST_F(Vacations, NothingInTheFilesIsBelievedBlindly) {
  writeText(panel_.path("canary.msg"), "canary");
  put("one.example/vacation.conf",
      "../../../canary:" + kOver + "nodate:startyear=2026\nnoday:" + window("2026-02-30 08:00", "2026-03-01 08:00"));
  for (const char* file : {"nodate.msg", "noday.msg"}) put(std::string("one.example/reply/") + file, file);
  // A reply folder that leads elsewhere.
  put("two.example/vacation.conf", "canary:" + kOver);
  fs::remove(at("two.example/reply"));
  fs::create_symlink(panel_.path(""), at("two.example/reply"));
  run();
  EXPECT_EQ(contentOf(panel_.path("canary.msg")), "canary");
  EXPECT_EQ(texts("nodate") + texts("noday"), "nodate.msg|noday.msg|");
  const std::string errors = panel_.logs.errors();
  for (const char* who : {"../../../canary@one.example", "nodate@one.example", "noday@one.example"}) {
    EXPECT_TRUE(holds(errors, joined("The vacation of ", who, " has no such mailbox, start or end. Leaving it")));
  }
}

TEST_F(Vacations, FailuresAreTold) {
  const std::string record = at("one.example/vacation.conf");
  for (const auto& [plan, dates, logged, ending, left] :
       Rows<const char*, std::string, std::string, const char*, const char*>{
           {"vacation.rename:EIO", kOpen, "Unable to rename box.msg_off of one.example (account bob): ", ".msg_off",
            "|x"},
           // The texts go before the entry, by which a removal that was interrupted is found again.
           {"safe_write.fsync:ENOSPC", kOver, "Unable to write " + record, ".msg", "|"},
           {"vacation.unlink:EIO", kOver, "", ".msg", "x|"}}) {
    put("one.example/vacation.conf", "box:" + dates);
    for (const char* text : {".msg", ".msg_off"}) ::unlink(at(joined("one.example/reply/box", text)).c_str());
    put(joined("one.example/reply/box", ending), "x");
    failing(plan, [&] { run(); });
    EXPECT_TRUE(holds(panel_.logs.errors(), logged));
    EXPECT_EQ(texts("box"), left) << plan;
    EXPECT_NE(contentOf(record), "") << plan;
  }
}

TEST_F(Vacations, ThatSomebodyCameBackToStay) {
  put("one.example/vacation.conf", "extended:" + kOver + "over:" + kOver + "other:" + kOver);
  for (const char* box : {"extended", "over", "gone", "other"}) put(joined("one.example/reply/", box, ".msg"), "x");
  ListFile boxes(nullptr);
  for (const char* box : {"extended", "over", "gone"}) boxes.addElement(box);
  std::string asked;
  EXPECT_EQ(Email("bob").removeVacations(boxes, "one.example",
                                         [&](const char* mailbox, const char* window) {
                                           EXPECT_EQ(std::string(window) + "\n", kOver);
                                           EXPECT_TRUE(exists(at("one.example/vacation.conf.lock")));
                                           asked += std::string(mailbox) + " ";
                                           return std::string_view(mailbox) == "over";
                                         }),
            1);
  EXPECT_EQ(asked, "extended over ");
  EXPECT_EQ(texts("extended") + texts("over") + texts("gone") + texts("other"), "x||x|x|");
  EXPECT_EQ(contentOf(at("one.example/vacation.conf")), "extended:" + kOver + "other:" + kOver);
}

TEST_F(Vacations, BothTextsOrHardLinked) {
  const Email email("bob");
  put("one.example/reply/box.msg", "on");
  put("one.example/reply/box.msg_off", "off");
  EXPECT_EQ(email.activateVacation("box", "one.example"), 1);
  EXPECT_EQ(texts("box"), "off|");
  fs::create_hard_link(at("one.example/reply/box.msg"), at("one.example/reply/box.msg_off"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(email.disableVacation("box", "one.example"), 1);
    EXPECT_EQ(texts("box"), "|off");
  }
}
