#include "core/sys/dates.h"

#include "support/fixtures.h"

using zvtaskq::getTimeFrom;

TEST(Dates, LocalTimes) {
  ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  ::tzset();
  for (const auto& [year, month, day, time, want] : Rows<const char*, const char*, const char*, const char*, long long>{
           {"2026", "1", "2", "03:04:05", 1'767'319'445},
           {"2026", "07", " 02 ", "03:04", 1'782'954'240},
           {"2026", "Jul", "2", "3", 1'782'954'000},
           {"2026", "1", "1", "", 1'767'222'000},
           {"2025", "12", "31", "24:00", 1'767'222'000},
           {"2028", "2", "29", "12", 1'835'434'800},
           {"2026", "2", "29", "12", -1},
           {"2026", "13", "1", "12", -1},
           {"2026", "0", "1", "12", -1},
           {"2026", "1", "1", "24:01", -1},
           {"2026", "1", "1", "12:60", -1},
           {"2026", "1", "1", "1:2:3:4", -1},
           {nullptr, nullptr, nullptr, nullptr, -1},
           {"99999999999", "1", "1", "12", -1}}) {
    EXPECT_EQ(getTimeFrom(year, month, day, time).value_or(-1), want)
        << (year ? year : "") << "/" << (month ? month : "") << "/" << (time ? time : "");
  }
  ::unsetenv("TZ");
  ::tzset();
}
