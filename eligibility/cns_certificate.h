#ifndef TARVELOQT_ELIGIBILITY_CNS_CERTIFICATE_H
#define TARVELOQT_ELIGIBILITY_CNS_CERTIFICATE_H

#include "eligibility/kind_rule.h"

namespace eligibility {

// Tells national services cards, those of the professional body and authentication certificates in
// the CNS position apart by their policy; one authority's change their policy with the renewal.
Classification classifyCns(Candidate& candidate);

}  // namespace eligibility

#endif
