#include "tally/bruteforce/records/counts.h"

#include <algorithm>
#include <climits>

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestUser = 256;

struct Markup {
  char c;
  const char* text;
};
constexpr Markup kMarkup[] = {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};

bool breaksRecords(char c) {
  return static_cast<unsigned char>(c) <= ' ' || c == 0x7f || c == '=' || c == '%' || c == '+' || c == '#';
}

bool isPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '?' && c <= 'Z') || (c >= '-' && c <= '9') || c == '_';
}

void appendEncoded(std::string& key, char c) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  key += '%';
  key += kDigits[byte >> 4];
  key += kDigits[byte & 15];
}

}  // namespace

BruteCounts::Count& BruteCounts::of(std::uint32_t name, std::uint32_t filter, bool& isNew) {
  if (name >= first_.size()) first_.resize(name + std::size_t{1});
  Count& first = first_[name];
  isNew = first.filter == kLast;
  if (isNew) first.filter = filter;
  if (first.filter == filter) return first;
  for (std::uint32_t i = first.next; i != kLast; i = more_[i].next) {
    if (more_[i].filter == filter) return more_[i];
  }
  isNew = true;
  more_.push_back({filter, first.next});
  first.next = static_cast<std::uint32_t>(more_.size() - 1);
  return more_.back();
}

long long addedUp(long long a, long long b) {
  long long sum = 0;
  return __builtin_add_overflow(a, b, &sum) ? LLONG_MAX : sum;
}

std::string_view bruteUserKey(std::string_view user, std::string& key) {
  user = user.substr(0, kLongestUser);
  if (std::all_of(user.begin(), user.end(), isPlain)) return user;
  key.clear();
  for (const char c : user) {
    const char* markup = nullptr;
    for (const Markup& row : kMarkup) {
      if (row.c == c) markup = row.text;
    }
    if (markup != nullptr) {
      key += markup;
    } else if (breaksRecords(c)) {
      appendEncoded(key, c);
    } else {
      key += c;
    }
  }
  return key;
}

}  // namespace zvtaskq
