// The English catalogue against the sources: lupdate reads the interface texts of the program
// into a copy of the committed catalogue, and every text must come out with a finished English
// translation that keeps its placeholders. A text added or changed without its English fails here
// (refresh with the update_translations target, then translate what it marks unfinished).

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

namespace {

struct Message
{
    QString context;
    QString source;
    QString translation;
    bool unfinished = false;
};

QList<Message> readCatalogue(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.errorString();
        return {};
    }
    QList<Message> messages;
    QXmlStreamReader xml(&file);
    QString context;
    Message message;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement())
            continue;
        if (xml.name() == QLatin1String("name")) {
            context = xml.readElementText();
        } else if (xml.name() == QLatin1String("message")) {
            message = Message{context, {}, {}, false};
        } else if (xml.name() == QLatin1String("source")) {
            message.source = xml.readElementText();
        } else if (xml.name() == QLatin1String("translation")) {
            const QString type = xml.attributes().value(QLatin1String("type")).toString();
            message.unfinished = type == QLatin1String("unfinished");
            if (type != QLatin1String("vanished") && type != QLatin1String("obsolete")) {
                message.translation = xml.readElementText();
                messages << message;
            }
        }
    }
    if (xml.hasError())
        *error = xml.errorString();
    return messages;
}

QStringList placeholders(const QString &text)
{
    static const QRegularExpression marker(QStringLiteral("%L?\\d"));
    QStringList found;
    for (auto it = marker.globalMatch(text); it.hasNext();)
        found << it.next().captured().remove(QLatin1Char('L'));
    found.sort();
    return found;
}

} // namespace

class TestTranslations : public QObject
{
    Q_OBJECT
private slots:
    void everyInterfaceTextHasEnglish();
};

void TestTranslations::everyInterfaceTextHasEnglish()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString catalogue = dir.filePath(QStringLiteral("tavrokvm_en.ts"));
    QVERIFY(QFile::copy(QStringLiteral(TAVROKVM_EN_CATALOGUE), catalogue));
    QFile::setPermissions(catalogue, QFile::ReadOwner | QFile::WriteOwner);

    QProcess lupdate;
    lupdate.setProcessChannelMode(QProcess::MergedChannels);
    lupdate.start(QStringLiteral(TAVROKVM_LUPDATE),
                  {QStringLiteral("@" TAVROKVM_TRANSLATED_SOURCES_LIST), QStringLiteral("-ts"),
                   catalogue, QStringLiteral("-source-language"), QStringLiteral("zh_CN"),
                   QStringLiteral("-target-language"), QStringLiteral("en"),
                   QStringLiteral("-no-obsolete"), QStringLiteral("-locations"),
                   QStringLiteral("none")});
    QVERIFY(lupdate.waitForFinished(60000));
    const QString output = QString::fromLocal8Bit(lupdate.readAll());
    QVERIFY2(lupdate.exitStatus() == QProcess::NormalExit && lupdate.exitCode() == 0,
             qPrintable(output));

    QString error;
    const QList<Message> messages = readCatalogue(catalogue, &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    // The main window's menus alone hold more than this; fewer means lupdate read nothing.
    QVERIFY2(messages.size() > 50, qPrintable(output));

    static const QRegularExpression han(QStringLiteral("\\p{Han}"));
    QStringList faults;
    for (const Message &m : messages) {
        const QString where = m.context + QStringLiteral(": \"") + m.source + QLatin1Char('"');
        if (m.unfinished || m.translation.trimmed().isEmpty())
            faults << QStringLiteral("no English: ") + where;
        else if (han.match(m.translation).hasMatch())
            faults << QStringLiteral("Chinese left in the English: ") + where;
        else if (placeholders(m.source) != placeholders(m.translation))
            faults << QStringLiteral("placeholders differ: ") + where;
    }
    QVERIFY2(faults.isEmpty(), qPrintable(QLatin1Char('\n') + faults.join(QLatin1Char('\n'))));
}

QTEST_APPLESS_MAIN(TestTranslations)
#include "tst_translations.moc"
