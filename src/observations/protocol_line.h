#pragma once

#include "observations/messung.h"

#include <cstdint>
#include <locale>
#include <sstream>
#include <string>

namespace vermo {

// The text of one observation for a table: fixed notation in the classic locale. A width holds
// for the next item only.
class ProtocolLine {
 public:
  ProtocolLine() {
    fStream.imbue(std::locale::classic());
    fStream.setf(std::ios_base::fixed, std::ios_base::floatfield);
  }

  ProtocolLine& Number(std::uint32_t number, int width) {
    fStream.width(width);
    fStream << number;
    return *this;
  }
  ProtocolLine& Value(double value, int width, int precision) {
    fStream.width(width);
    fStream.precision(precision);
    fStream << value;
    return *this;
  }
  ProtocolLine& Value(double value) {
    fStream << value;
    return *this;
  }
  ProtocolLine& Blank() {
    fStream << ' ';
    return *this;
  }
  // "(n) ", or four blanks without an ordinal.
  ProtocolLine& Ordinal(const Messung& messung) {
    if (messung.Ordinal() == -1)
      fStream << "    ";
    else
      fStream << '(' << messung.Ordinal() << ") ";
    return *this;
  }
  // " ***" for an outlier, " ---" for a protected observation, and the line end.
  std::string Finish(const Messung& messung) {
    if (messung.IsAusreisser())
      fStream << " ***";
    else if (!messung.TakesPartInBlunderTest())
      fStream << " ---";
    fStream << '\n';
    return fStream.str();
  }

 private:
  std::ostringstream fStream;
};

}  // namespace vermo
