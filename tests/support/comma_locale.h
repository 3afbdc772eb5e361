#pragma once

#include <locale>
#include <string>

namespace vermo::test {

// For one scope the process writes 1.234,5: nothing that the library reports may follow.
class CommaLocale {
 public:
  CommaLocale() : fBefore(std::locale::global(std::locale(std::locale::classic(), new Comma))) {}
  ~CommaLocale() { std::locale::global(fBefore); }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

 private:
  class Comma final : public std::numpunct<char> {
   protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };

  std::locale fBefore;
};

}  // namespace vermo::test
