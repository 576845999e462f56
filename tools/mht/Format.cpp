#include "Format.h"

#include <iomanip>
#include <sstream>

namespace mht {

std::string fixed(double value, int decimals) {
  std::ostringstream os;
  os << std::fixed << std::setprecision(decimals) << value;
  return os.str();
}

std::string percent(double fraction, int decimals) { return fixed(fraction * 100, decimals); }

}  // namespace mht
