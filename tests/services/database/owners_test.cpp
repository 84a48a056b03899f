#include "services/database/owners.h"

#include <gtest/gtest.h>

#include "core/record/list_file.h"

using namespace zvtaskq;

TEST(DatabaseOwners, TheLongestAccountBeforeAnUnderscore) {
  ListFile accounts(nullptr);
  for (const char* name : {"a", "a_b", "a_b_", "bob", "bob-2"}) accounts.addElement(name);
  const DatabaseOwners owners(accounts), later(accounts, "a_b_c");
  std::string databases, users;
  for (const char* name : {"a_b", "a_b_c", "a_b_c_d", "a_bc_d", "a_b__c", "bob", "bob_", "bob-2_x", "bobby_x", "_bob_x",
                           "Bob_x", "_", ""}) {
    databases += joined(owners.ofDatabase(name), " ");
    users += joined(owners.ofUser(name), " ");
  }
  EXPECT_EQ(databases, "a a_b a_b a a_b_  bob bob-2      ");
  EXPECT_EQ(users, "a_b a_b a_b a a_b_ bob bob bob-2      ");
  EXPECT_TRUE(owners.mayOwn("a_b", "a_b_c_d") && !owners.mayOwn("a", "a_b_c"));
  EXPECT_EQ(later.ofDatabase("a_b_c_d"), "a_b_c");
}
