#include "inventory/certificate_descriptor.h"

namespace inventory {

void CertificateDescriptor::writeSharedFields(RenewRecord& record) const
{
    record.insert(renew_context::subjectDN, field(subjectField));
    record.insert(renew_context::issuerDN, field(issuerField));
    record.insert(renew_context::iut, field(iutField));
    record.insert(renew_context::policy, field(policyField));
    record.insert(renew_context::serialNumber, field(serialNumberField));
    record.insert(renew_context::notBefore, field(notBeforeField));
    record.insert(renew_context::notAfter, field(notAfterField));
    record.insert(renew_context::certificateCkaId, field(ckaIdField));
}

}  // namespace inventory
