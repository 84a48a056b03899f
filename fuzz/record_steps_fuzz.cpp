// A record changed and asked in any order holds what one holds that sorts after every call.
#include "support.h"

using namespace zvtaskq;
using namespace zvtaskq::fuzz;

namespace {

enum Step { kSet, kInsert, kExtend, kErase, kGet, kSize, kFill, kCopy, kSort, kEmpty, kSteps };

std::string nameFrom(Input& input) {
  // Few names, so that they repeat; some share a beginning longer than what a sort looks at first.
  constexpr const char* stems[] = {"", "n", "\xc3", "name_of_many", "name_of_many\xff"};
  const char* stem = stems[input.choice(5)];
  const unsigned number = input.choice(24);
  return number == 0 ? stem : stem + std::to_string(number);
}

std::string valueFrom(Input& input) {
  const unsigned length = input.choice(40);
  return std::string(length, static_cast<char>('a' + length % 26));
}

void look(const ConfigFile& record, const PlainRecord& plain, const std::string& name) {
  const auto want = plain.get(name);
  const char* got = record.getValue(name.c_str());
  require((got != nullptr) == want.has_value(), "found", name);
  require(got == nullptr || *want == got, "value", name);
}

void change(ConfigFile& record, PlainRecord& plain, Step step, const std::string& name, const std::string& value) {
  const char* text = value.c_str();
  switch (step) {
    case kSet:
    case kInsert:
      static_cast<void>(step == kSet ? record.setParam(name.c_str(), text) : record.insertParam(name.c_str(), text));
      plain.set(name, value);
      break;
    case kExtend:
      record.extendParam(name.c_str(), text);
      plain.set(name, plain.get(name).value_or("") + value);
      break;
    case kErase:
      require((record.deleteParam(name.c_str()) == 1) == plain.erase(name), "erased", name);
      break;
    case kFill: {
      const std::string line = joined("n1=", value, "&n9=1&n1=2&n3=", value);
      record.fillFromPost(line.c_str());
      for (const char* set : {"n1", "n9", "n3"}) plain.set(set, set[1] == '3' ? value : set[1] == '9' ? "1" : "2");
      break;
    }
    default:
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  ConfigFile record(nullptr);
  PlainRecord plain;
  while (!input.isUsedUp()) {
    const auto step = static_cast<Step>(input.choice(kSteps));
    const std::string name = nameFrom(input), value = valueFrom(input);
    switch (step) {
      case kGet:
        look(record, plain, name);
        break;
      case kSize:
        require(record.size() == static_cast<long long>(plain.sorted().size()), "size");
        break;
      case kCopy: {
        const ConfigFile copy(&record);
        requireSame(copy, plain, "copy");
        break;
      }
      case kSort:
        record.sort();
        break;
      case kEmpty:
        if (!name.empty()) break;
        record.empty();
        plain = PlainRecord();
        break;
      default:
        change(record, plain, step, name, value);
    }
  }
  requireSame(record, plain, "in the end");
  return 0;
}
