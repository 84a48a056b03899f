// The tokens of the template of mail filters. What is known of them stands in this table alone; docs/templates.md is
// made from it.
#pragma once

#include <cstddef>

namespace zvtaskq {

enum class FilterToken { domain, size, words, high, mark, action, folder };

struct FilterTokenRow {
  FilterToken token;
  const char* name;
  bool isList;
  const char* example;
  const char* meaning;
};

/// In the order of the enumeration.
inline constexpr FilterTokenRow kFilterTokens[] = {
    {FilterToken::domain, "DOMAIN", false, "bob.example", "The domain whose mailboxes are filtered."},
    {FilterToken::size, "SIZE", false, "20M", "The size above which a mail is dropped; empty for none."},
    {FilterToken::words, "WORDS", false, "$h_Subject: contains \"lottery\" or $h_From: contains \"lottery\"",
     "The condition that a mail has one of the blocked words; empty for none."},
    {FilterToken::high, "HIGH", false, "***************",
     "What the header X-Spam-Level of a mail that is dropped holds at least; empty for none."},
    {FilterToken::mark, "MARK", false, "*****", "What that of a mail that counts as spam holds at least."},
    {FilterToken::action, "ACTION", false, "folder",
     "What becomes of that: `folder`, `drop`, or empty when it stays in the inbox."},
    {FilterToken::folder, "FOLDER", false, ".Junk", "The folder for it, by `spam_inbox_prefix`."},
};
inline constexpr std::size_t kFilterTokenCount = sizeof kFilterTokens / sizeof kFilterTokens[0];

}  // namespace zvtaskq
