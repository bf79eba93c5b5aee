// The steps of a renewal, as the host and the tables call them.

#ifndef TARVELOQT_BENCH_RENEWAL_STEP_NAMES_H
#define TARVELOQT_BENCH_RENEWAL_STEP_NAMES_H

namespace bench::step {

inline constexpr char start[] = "start";
inline constexpr char reader[] = "reader list";
inline constexpr char pin[] = "PIN";
inline constexpr char cardCheck[] = "card check";
inline constexpr char inventory[] = "inventory";
inline constexpr char request[] = "request";
inline constexpr char installation[] = "installation";
inline constexpr char lastLook[] = "inventory again";

}  // namespace bench::step

#endif
