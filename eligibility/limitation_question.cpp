#include "eligibility/limitation_question.h"

#include "session/console.h"

#include <QApplication>
#include <QMessageBox>
#include <QString>
#include <QStringList>

namespace eligibility {

namespace {

// The console hands over bytes as they came: "sì" is UTF-8 on most terminals, Latin-1 on a few.
bool isYes(const QString& answer)
{
    static const QStringList yes{QStringLiteral("s"), QStringLiteral("si"),
                                 QString::fromUtf8("s\xC3\xAC"), QStringLiteral("y"),
                                 QStringLiteral("yes")};
    const QString fromUtf8 = QString::fromUtf8(answer.toLatin1());
    return yes.contains(fromUtf8.normalized(QString::NormalizationForm_C), Qt::CaseInsensitive) ||
           yes.contains(answer, Qt::CaseInsensitive);
}

}  // namespace

bool askToRemoveLimitation()
{
    const QString text = QStringLiteral(
        "Il certificato di firma digitale che si sta per rinnovare CONTIENE UNA LIMITAZIONE D'USO "
        "e la smart card non puo' essere validamente utilizzata per firmare documenti che "
        "coinvolgano anche altri enti/aziende.\n\nSe lo desidera puo' eliminare questa limitazione "
        "e fare si' che la smart card possa essere validamente utilizzata per firmare qualsiasi "
        "documento, anche non riguardante atti dell'Briogi.\n\nDesidera ELIMINARE LA LIMITAZIONE "
        "d'uso?\n");
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) {
        return isYes(session::console::ask(text, session::console::Echo::shown));
    }
    return QMessageBox::question(nullptr, QStringLiteral("QMessageBox::question()"), text,
                                 QMessageBox::Yes | QMessageBox::No) == QMessageBox::Yes;
}

}  // namespace eligibility
