#include "app/translation.h"

#include <QLocale>
#include <QTranslator>

QStringList translationCandidates(const QStringList &uiLanguages)
{
    QStringList candidates;
    for (const QString &entry : uiLanguages)
        candidates << QStringLiteral(":/i18n/tavrokvm_") + QLocale(entry).name();
    return candidates;
}

QString loadFirstTranslation(QTranslator &translator, const QStringList &uiLanguages)
{
    for (const QString &candidate : translationCandidates(uiLanguages)) {
        if (translator.load(candidate))
            return candidate;
    }
    return QString();
}
