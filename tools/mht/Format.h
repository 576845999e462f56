// Numbers as the tool's reports write them.
#pragma once

#include <string>

namespace mht {

// The value with `decimals` decimals, rounded as a stream rounds: fixed(1234.5678, 1) is
// "1234.6".
std::string fixed(double value, int decimals);

// A fraction of one as a percentage, without the sign: percent(0.95234, 2) is "95.23".
std::string percent(double fraction, int decimals);

}  // namespace mht
