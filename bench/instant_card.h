#ifndef TARVELOQT_BENCH_INSTANT_CARD_H
#define TARVELOQT_BENCH_INSTANT_CARD_H

#include <string>

namespace bench {

// The end of validity of every certificate of the instant card, "yyyyMMdd000000".
void setNotAfter(const std::string& notAfter);

}  // namespace bench

#endif
