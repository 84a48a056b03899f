#include "core/text/sorted_order.h"

#include <deque>

#include "support/fixtures.h"

namespace {
struct Item {
  std::string_view text;
  unsigned value, place;
};

int byValue(const Item& a, const Item& b) {
  return static_cast<int>(a.value > b.value) - static_cast<int>(a.value < b.value);
}
}  // namespace

TEST(SortByText, OrdersWhateverTheTextsShareAsComparingThemDoes) {
  // The bytes at both ends of the order, signed and unsigned, beside some that make texts share long beginnings.
  const std::string bytes("ab\x01\x7f\x80\xff");
  const std::string pieces[] = {"", "customer", "www.shop.customer-number-", std::string(20, '\x7f'),
                                std::string(9, '\x80')};
  unsigned state = 5;
  const auto random = [&state](unsigned below) { return (state = state * 1103515245U + 12345U) / 65536U % below; };
  for (const unsigned count : {0U, 1U, 2U, 7U, 32U, 33U, 300U, 1024U, 5000U}) {
    for (int round = 0; round < 20; ++round) {
      const unsigned kinds = 1 + random(5), letters = 1 + random(6), longest = 1 + random(30);
      std::deque<std::string> texts;
      std::vector<Item> items;
      for (unsigned i = 0; i < count; ++i) {
        std::string text = pieces[random(kinds)] + pieces[random(kinds)];
        for (unsigned more = random(longest); more > 0; --more) text += bytes[random(letters)];
        // In the second round one text alone begins otherwise, somewhere among those that share much.
        if (round == 1) text.insert(0, i == count / 3 ? "www" : pieces[2]);
        items.push_back({texts.emplace_back(round == 0 ? "" : text), random(3), i});
      }
      std::vector<Item> want = items;
      std::stable_sort(want.begin(), want.end(), [](const Item& a, const Item& b) {
        const int order = strcomp(a.text, b.text);
        return order != 0 ? order < 0 : byValue(a, b) < 0;
      });
      const auto sameText = [](const Item& a, const Item& b) { return a.text == b.text; };
      const bool repeats = std::adjacent_find(want.begin(), want.end(), sameText) != want.end();
      const auto textOf = [](const Item& item) { return item.text; };
      EXPECT_EQ(sortByText(items.data(), items.size(), textOf, byValue), repeats);
      for (unsigned i = 0; i < count; ++i) ASSERT_EQ(items[i].place, want[i].place) << count << " items, " << round;
    }
  }
}
