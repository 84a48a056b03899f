// The settings of zorvane.conf as typed fields, made from the rows of settings.def, which says what each means, its
// unit and its default.
#pragma once

#include <type_traits>

#include "core/text/text.h"

namespace zvtaskq {

class ConfigFile;

/// Where a setting's default lives; settings.def explains.
enum class Layer { None, Record, Field, Both, WhenEmpty };

/// The kinds of the rows as the types of their fields.
namespace setting_kind {
using Int = int;
using Flag = bool;
using Text = zvtaskq::Text;
using Ulong = unsigned long;
using U64 = unsigned long long;
using I64 = long long;
using Char = char;
using Double = double;

/// What a field holds before anything is read. A text waits for the layer that brings it.
template <class Kind>
Kind initial(Kind value, Layer) {
  return value;
}
template <class Kind>
requires std::is_same_v<Kind, Text> Text initial(const char* value, Layer layer) {
  return Text::copyOf(layer == Layer::Field ? value : nullptr);
}
}  // namespace setting_kind

/// One public field for every key of zorvane.conf, named as the key. Texts are owned, and null when neither the file
/// nor a default gives them.
class Settings {
 public:
  Settings();
  ~Settings();
  Settings(Settings&&) = delete;
  /// Takes the other's texts over, freeing the own ones.
  Settings& operator=(Settings&&) noexcept;

#define SETTING(kind, key, field, value, text, layer, example, unit, meaning) \
  setting_kind::kind field = setting_kind::initial<setting_kind::kind>(value, Layer::layer);
#define ALIAS(...)
#include "core/config/settings.def"

  /// Puts the defaults of the record's layer into the record, for the file to be read over them.
  static void putRecordDefaults(ConfigFile& record);
  /// Puts what stands in for an administrator's choices where no file is read at all.
  static void putBareDefaults(ConfigFile& record);
  /// Fills every field from the record. A key that is absent, or whose value is not of its kind, leaves its field as
  /// it is; a text that may not be empty then takes its default.
  void load(const ConfigFile& record);
  /// Sets every key to its field's value: texts as they are (a null one empty), numbers in decimal, flags as 1 or 0.
  void store(ConfigFile& record) const;
};

}  // namespace zvtaskq
