// What a character is, by the Unicode character database: the same on every machine, whatever
// locales it has. Order alone is a matter of the listener's locale.
//
// Text is UTF-8; bytes that are not are taken for U+FFFD. Any thread but the render thread.
#pragma once

#include <locale.h>

#include <memory>
#include <string>
#include <string_view>

namespace velorin::unicode {

/// A letter, a mark or a number: general category L*, M* or N*.
bool isAlphanumeric(char32_t codePoint) noexcept;

/// The lower case of every character by itself (no rule looks at its neighbours).
std::string lowercased(std::string_view text);

/// The order of names as a listener reads them: by the collation of the locale that the environment
/// names (LC_ALL, LC_COLLATE, LANG), upper and lower case alike. Where that is "C" or is not
/// installed, the order is that of the code points. Reads the environment when made.
class NameOrder {
 public:
  NameOrder();

  /// What to sort by: computed once per name, since that is the costly part. Of two names the one
  /// with the lesser key comes first; equal keys are equal names.
  std::string key(std::string_view name) const;

 private:
  struct Free {
    void operator()(locale_t locale) const noexcept { ::freelocale(locale); }
  };
  std::unique_ptr<std::remove_pointer_t<locale_t>, Free> _locale;  ///< none: code points
};

}  // namespace velorin::unicode
