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

QString fallbackTranslation(const QStringList &uiLanguages)
{
    for (const QString &entry : uiLanguages) {
        if (QLocale(entry).language() == QLocale::Chinese)
            return QString();
    }
    return QStringLiteral(":/i18n/tavrokvm_en");
}

QString loadInterfaceTranslation(QTranslator &translator, const QStringList &uiLanguages)
{
    const QString found = loadFirstTranslation(translator, uiLanguages);
    if (!found.isEmpty())
        return found;
    const QString fallback = fallbackTranslation(uiLanguages);
    if (!fallback.isEmpty() && translator.load(fallback))
        return fallback;
    return QString();
}
