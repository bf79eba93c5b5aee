// Objects of other programs on a card.

#ifndef TARVELOQT_TESTS_CARDLIBS_FOREIGN_OBJECTS_H
#define TARVELOQT_TESTS_CARDLIBS_FOREIGN_OBJECTS_H

#include "cardlibs/token/session.h"

#include <filesystem>

namespace cardlibs_test {

inline constexpr std::size_t foreignObjects = 6;

// Two SSH key pairs of one label, the authority's own certificate and a data object, these two
// labelled like keys that renewals make.
void addForeignObjects(cardlibs::token::Session& session, const std::filesystem::path& authority);

}  // namespace cardlibs_test

#endif
