#pragma once

#include <regex>
#include <string>

namespace kav {

// The standard regular expression traits, answering the two questions that
// compiling a bracket expression asks of each of the 256 bytes (its primary
// sort key, and whether it is in the expression's classes) by the "C" locale's
// rules instead of through std::locale's facets. The standard traits look a
// facet up and, for the key, run a collation transform every time, which made
// compiling the program's two patterns most of a start's work. The program
// never leaves the "C" locale, so the answers are the same. All else is the
// standard traits' own; a pattern that is neither case-blind nor collating
// asks none of it per byte.
struct kav_regex_traits : std::regex_traits<char> {
  // The primary sort key of [first, last): its bytes, A-Z lowered. Built a
  // byte at a time: for the one byte asked about, far cheaper than the
  // string's range constructor.
  template <class Iterator>
  std::string transform_primary(Iterator first, Iterator last) const {
    std::string key;
    for (; first != last; ++first) {
      const char c = *first;
      key.push_back(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return key;
  }

  // No byte is in the empty set of classes, which is the set of every bracket
  // expression naming no class.
  bool isctype(char c, char_class_type classes) const {
    return classes != char_class_type() && std::regex_traits<char>::isctype(c, classes);
  }
};

// A regular expression compiled with these traits.
using kav_regex = std::basic_regex<char, kav_regex_traits>;

}  // namespace kav
