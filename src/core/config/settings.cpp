#include "core/config/settings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <variant>

#include "core/record/config_file.h"

namespace zvtaskq {

namespace {

using FieldOf =
    std::variant<int Settings::*, bool Settings::*, Text Settings::*, unsigned long Settings::*,
                 unsigned long long Settings::*, long long Settings::*, char Settings::*, double Settings::*>;

struct Row {
  const char* key;
  FieldOf field;
  Layer layer;
  /// The default as the file would spell it; null for none.
  const char* text;
};

constexpr Row kRows[] = {
#define SETTING(kind, key, field, value, text, layer, example, unit, meaning) \
  {#key, &Settings::field, Layer::layer, text},
#include "core/config/settings.def"
};

/// The rows in the order of their keys, which is the order a record keeps its names in.
constexpr auto kByKey = [] {
  std::array<const Row*, std::size(kRows)> order{};
  std::transform(std::begin(kRows), std::end(kRows), order.begin(), [](const Row& row) { return &row; });
  std::sort(order.begin(), order.end(), [](const Row* a, const Row* b) { return std::string_view(a->key) < b->key; });
  return order;
}();

struct BareDefault {
  const char* key;
  const char* value;
};
constexpr BareDefault kBareDefaults[] = {
    {"demodocsroot", "./data/skins/enhanced"},
    {"docsroot", "./data/skins/enhanced"},
    {"servername", "server.zorvane.example"},
    {"ns1", "ns1.zorvane.example"},
    {"ns2", "ns2.zorvane.example"},
    {"reseller_can_set_email_limit", "1"},
    {"reseller_can_reset_email_count", "1"},
    {"user_can_set_email_limit", "1"},
    {"notify_email_on_per_email_limit", "1"},
    {"max_user_send_limit", "400"},
    {"max_per_email_send_limit", "200"},
};

constexpr bool areKeys() {
  for (const BareDefault& bare : kBareDefaults) {
    bool found = false;
    for (const Row& row : kRows) found = found || std::string_view(row.key) == bare.key;
    if (!found) return false;
  }
  return true;
}
static_assert(areKeys(), "a bare default names no setting");

template <class Number>
void read(const ConfigFile& record, const Row& row, Number& field) {
  static_cast<void>(record.getValue(row.key, &field));
}

void read(const ConfigFile& record, const Row& row, double& field) {
  // "nan" and "inf" scan, and every limit compared with them would stop being one.
  double number = 0;
  if (record.getValue(row.key, &number) != 0 && std::isfinite(number)) field = number;
}

void read(const ConfigFile& record, const Row& row, Text& field) {
  field = record.getValue(row.key);
}

template <class Number>
void write(ConfigFile& record, const Row& row, Number field) {
  record.setParam(row.key, field);
}

void write(ConfigFile& record, const Row& row, const Text& field) {
  record.setParam(row.key, field.orEmpty());
}

}  // namespace

Settings::Settings() = default;
Settings::~Settings() = default;
Settings& Settings::operator=(Settings&&) noexcept = default;

void Settings::putRecordDefaults(ConfigFile& record) {
  for (const Row& row : kRows) {
    if (row.layer == Layer::Record || row.layer == Layer::Both) record.setParam(row.key, row.text);
  }
}

void Settings::putBareDefaults(ConfigFile& record) {
  for (const BareDefault& bare : kBareDefaults) record.setParam(bare.key, bare.value);
}

void Settings::load(const ConfigFile& record) {
  // Most keys are in no file: one walk along both sorted lists finds those that are.
  const long long size = record.size();
  long long slot = 0;
  for (const Row* row : kByKey) {
    while (slot < size && strcomp(record.getNameAt(slot), row->key) < 0) ++slot;
    if (slot < size && strcomp(record.getNameAt(slot), row->key) == 0) {
      std::visit([&](auto field) { read(record, *row, this->*field); }, row->field);
    }
  }
  for (const Row& row : kRows) {
    if (row.layer != Layer::WhenEmpty) continue;
    Text& field = this->*std::get<Text Settings::*>(row.field);
    if (field.isEmpty()) field = row.text;
  }
}

void Settings::store(ConfigFile& record) const {
  for (const Row& row : kRows) {
    std::visit([&](auto field) { write(record, row, this->*field); }, row.field);
  }
}

}  // namespace zvtaskq
