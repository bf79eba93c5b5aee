#include "limitation.h"

namespace support {

const std::string limitation =
    "Uso limitato alla firma di documenti informatici dell'Organizzazione indicata nel campo "
    "Organization del certificato per l'esercizio delle funzioni relative al ruolo ricoperto dal "
    "Titolare";

const std::string questionText =
    "Il certificato di firma digitale che si sta per rinnovare CONTIENE UNA LIMITAZIONE D'USO e la "
    "smart card non puo' essere validamente utilizzata per firmare documenti che coinvolgano anche "
    "altri enti/aziende.\n\nSe lo desidera puo' eliminare questa limitazione e fare si' che la "
    "smart "
    "card possa essere validamente utilizzata per firmare qualsiasi documento, anche non "
    "riguardante "
    "atti dell'Briogi.\n\nDesidera ELIMINARE LA LIMITAZIONE d'uso?\n";

Descriptor limited(Descriptor descriptor)
{
    descriptor.policy = "1.3.76.36.1.1.1";
    descriptor.explicitText = limitation;
    descriptor.iut = "2026500129001";
    return descriptor;
}

}  // namespace support
