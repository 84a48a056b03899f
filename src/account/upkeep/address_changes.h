// What a swap of addresses changes, written down before the first of it is changed.
#pragma once

#include <string>
#include <vector>

namespace zvtaskq {

/// One value in one file that becomes another.
struct AddressChange {
  /// Whose file it is; empty for the record of an address.
  std::string account;
  /// The file in the account's folder, or the address.
  std::string file;
  /// The key of the record; empty for a line of a list.
  std::string key;
  std::string old;
  /// Empty when the key goes.
  std::string now;
};

/// The list of changes that are to be made, in the state folder. A change has been made when its file no longer holds
/// the old value, so that what was cut short is taken up by making all of them once more: none is made twice, and none
/// over what somebody else has written meanwhile.
class AddressChanges {
 public:
  /// Reads what an earlier swap has left. 0 with an error-log line when that cannot be read. Leaves nobody.
  [[nodiscard]] int read();
  bool isEmpty() const { return changes_.empty(); }
  void add(AddressChange change);
  /// Writes the list down. 0 with an error-log line. Leaves nobody.
  [[nodiscard]] int write() const;
  /// Makes the changes, an account's under its lock. What is left then is what waits for an account or could not be
  /// written; a file that is gone or damaged is left out, the latter with an error-log line. 1 when nothing is left.
  /// Leaves nobody.
  [[nodiscard]] int make();

 private:
  std::vector<AddressChange> changes_;
};

}  // namespace zvtaskq
