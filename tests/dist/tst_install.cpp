// `cmake --install` of the build folder into a DESTDIR under /usr: the files land where a desktop
// expects them, the desktop entry and the AppStream metainfo pass their validators, and the
// box's udev rule parses and gives the logged-in user its serial, video and sound devices.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

namespace {

struct Run
{
    int exitCode = -1;
    QString output;
};

Run run(const QString &program, const QStringList &arguments,
        const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(120000))
        return result;
    result.output = QString::fromLocal8Bit(process.readAll());
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

// One rule line of a udev rules file: KEY[{ATTR}] OP "VALUE" pairs joined by commas.
struct UdevPair
{
    QString key;
    QString attribute;
    QString op;
    QString value;
};

// Parses one non-comment line; an empty list and `error` set when it is not a valid rule.
QList<UdevPair> parseUdevLine(const QString &line, QString *error)
{
    static const QRegularExpression pair(QStringLiteral(
        "^\\s*([A-Z_]+)(?:\\{([^}]+)\\})?\\s*(==|!=|\\+=|-=|:=|=)\\s*\"([^\"]*)\"\\s*(,|$)"));
    static const QStringList matchKeys = {"ACTION", "SUBSYSTEM", "SUBSYSTEMS", "KERNEL",
                                          "ATTR",   "ATTRS",     "ENV",        "DRIVERS"};
    static const QStringList assignKeys = {"TAG", "GOTO", "LABEL", "MODE", "GROUP", "ENV"};
    static const QStringList attributeKeys = {"ATTR", "ATTRS", "ENV"};
    QList<UdevPair> pairs;
    QString rest = line;
    while (!rest.trimmed().isEmpty()) {
        const QRegularExpressionMatch m = pair.match(rest);
        if (!m.hasMatch()) {
            *error = QStringLiteral("cannot parse: ") + rest;
            return {};
        }
        const UdevPair p{m.captured(1), m.captured(2), m.captured(3), m.captured(4)};
        const bool isMatch = p.op == QLatin1String("==") || p.op == QLatin1String("!=");
        if (isMatch ? !matchKeys.contains(p.key) : !assignKeys.contains(p.key)) {
            *error = QStringLiteral("%1 cannot take %2").arg(p.key, p.op);
            return {};
        }
        if (attributeKeys.contains(p.key) == p.attribute.isEmpty()) {
            *error = p.key + QStringLiteral(": attribute missing or not allowed");
            return {};
        }
        pairs << p;
        rest = rest.mid(m.capturedLength());
        if (m.captured(5).isEmpty() && !rest.trimmed().isEmpty()) {
            *error = QStringLiteral("missing comma before: ") + rest;
            return {};
        }
    }
    return pairs;
}

QString valueOf(const QList<UdevPair> &pairs, const QString &key, const QString &op,
                const QString &attribute = QString())
{
    for (const UdevPair &p : pairs) {
        if (p.key == key && p.op == op && p.attribute == attribute)
            return p.value;
    }
    return QString();
}

} // namespace

class TestInstall : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void installedFiles_data();
    void installedFiles();
    void desktopEntry();
    void metainfo();
    void udevParser_data();
    void udevParser();
    void udevRuleGivesTheSeatUserTheBox_data();
    void udevRuleGivesTheSeatUserTheBox();

private:
    QTemporaryDir m_destDir;
    QString m_root; // DESTDIR + /usr
    QList<QList<UdevPair>> m_rules;
    QStringList m_labels;
};

void TestInstall::initTestCase()
{
    QVERIFY(m_destDir.isValid());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DESTDIR"), m_destDir.path());
    const Run install = run(QStringLiteral(TAVROKVM_CMAKE),
                            {QStringLiteral("--install"), QStringLiteral(TAVROKVM_BUILD_DIR),
                             QStringLiteral("--prefix"), QStringLiteral("/usr")},
                            environment);
    QVERIFY2(install.exitCode == 0, qPrintable(install.output));
    m_root = m_destDir.path() + QStringLiteral("/usr");
    // Nothing outside the prefix.
    QCOMPARE(QDir(m_destDir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{"usr"});

    QFile rules(m_root + QStringLiteral("/lib/udev/rules.d/70-tavrokvm.rules"));
    QVERIFY(rules.open(QIODevice::ReadOnly | QIODevice::Text));
    int number = 0;
    for (const QString &line : QString::fromUtf8(rules.readAll()).split(QLatin1Char('\n'))) {
        ++number;
        if (line.trimmed().isEmpty() || line.trimmed().startsWith(QLatin1Char('#')))
            continue;
        QString error;
        const QList<UdevPair> pairs = parseUdevLine(line, &error);
        QVERIFY2(error.isEmpty(), qPrintable(QStringLiteral("line %1: %2").arg(number).arg(error)));
        m_rules << pairs;
        const QString label = valueOf(pairs, QStringLiteral("LABEL"), QStringLiteral("="));
        if (!label.isEmpty())
            m_labels << label;
    }
}

void TestInstall::installedFiles_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("executable");
    QTest::newRow("console") << "bin/tavrokvm" << true;
    QTest::newRow("simulated box") << "bin/tavrokvm-boxsim" << true;
    QTest::newRow("virtual camera") << "lib/tavrokvm/gstreamer-1.0/libgsttavrokvmvcam.so" << false;
    QTest::newRow("desktop entry") << "share/applications/org.tavrokvm.TavroKVM.desktop" << false;
    QTest::newRow("metainfo") << "share/metainfo/org.tavrokvm.TavroKVM.metainfo.xml" << false;
    QTest::newRow("udev rule") << "lib/udev/rules.d/70-tavrokvm.rules" << false;
    QTest::newRow("copyright") << "share/doc/tavrokvm/copyright" << false;
    QTest::newRow("changelog") << "share/doc/tavrokvm/changelog.gz" << false;
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256}) {
        QTest::addRow("icon %d", size)
            << QStringLiteral("share/icons/hicolor/%1x%1/apps/org.tavrokvm.TavroKVM.png").arg(size)
            << false;
    }
}

void TestInstall::installedFiles()
{
    QFETCH(QString, path);
    QFETCH(bool, executable);
    const QFileInfo info(m_root + QLatin1Char('/') + path);
    QVERIFY2(info.isFile(), qPrintable(path));
    QCOMPARE(info.isExecutable(), executable);
    if (path.endsWith(QLatin1String(".png"))) {
        const int size =
            path.section(QLatin1Char('/'), 3, 3).section(QLatin1Char('x'), 0, 0).toInt();
        QFile file(info.filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        // The PNG header's width and height: the icon is drawn at the size its folder names.
        const QByteArray head = file.read(24);
        QCOMPARE(qFromBigEndian<quint32>(head.constData() + 16), quint32(size));
        QCOMPARE(qFromBigEndian<quint32>(head.constData() + 20), quint32(size));
    }
}

void TestInstall::desktopEntry()
{
    const QString path =
        m_root + QStringLiteral("/share/applications/org.tavrokvm.TavroKVM.desktop");
    const Run validate = run(QStringLiteral("desktop-file-validate"), {path});
    QVERIFY2(validate.exitCode == 0 && validate.output.trimmed().isEmpty(),
             qPrintable(validate.output));
    // What it starts and shows is installed.
    QSettings entry(path, QSettings::IniFormat);
    entry.beginGroup(QStringLiteral("Desktop Entry"));
    QVERIFY(QFileInfo(m_root + QStringLiteral("/bin/") + entry.value("Exec").toString())
                .isExecutable());
    QVERIFY(QFileInfo::exists(m_root + QStringLiteral("/share/icons/hicolor/48x48/apps/") +
                              entry.value("Icon").toString() + QStringLiteral(".png")));
}

void TestInstall::metainfo()
{
    const QString path =
        m_root + QStringLiteral("/share/metainfo/org.tavrokvm.TavroKVM.metainfo.xml");
    const Run validate =
        run(QStringLiteral("appstreamcli"), {QStringLiteral("validate"), QStringLiteral("--no-net"),
                                             QStringLiteral("--explain"), path});
    QVERIFY2(validate.exitCode == 0, qPrintable(validate.output));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    QVERIFY(text.contains(QLatin1String(
        "<launchable type=\"desktop-id\">org.tavrokvm.TavroKVM.desktop</launchable>")));
    QVERIFY(QRegularExpression(
                QStringLiteral("<screenshot type=\"default\">.*<image>https://\\S+</image>"),
                QRegularExpression::DotMatchesEverythingOption)
                .match(text)
                .hasMatch());
    QVERIFY(text.contains(QLatin1String("<release version=\"" TAVROKVM_VERSION "\"")));
}

// The parser above is the check of the rule: lines udev would reject must fail it.
void TestInstall::udevParser_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("valid");
    QTest::newRow("match and tag")
        << R"(SUBSYSTEM=="tty", ATTRS{idVendor}=="a5c0", TAG+="uaccess")" << true;
    QTest::newRow("assignment where a match is meant")
        << R"(SUBSYSTEM="tty", TAG+="uaccess")" << false;
    QTest::newRow("match on an assignment key") << R"(SUBSYSTEM=="tty", TAG=="uaccess")" << false;
    QTest::newRow("unquoted value") << R"(SUBSYSTEM==tty, TAG+="uaccess")" << false;
    QTest::newRow("missing comma") << R"(SUBSYSTEM=="tty" TAG+="uaccess")" << false;
    QTest::newRow("ATTRS without attribute") << R"(ATTRS=="a5c0", TAG+="uaccess")" << false;
    QTest::newRow("unknown key") << R"(SUBSYTEM=="tty", TAG+="uaccess")" << false;
}

void TestInstall::udevParser()
{
    QFETCH(QString, line);
    QFETCH(bool, valid);
    QString error;
    parseUdevLine(line, &error);
    QVERIFY2(error.isEmpty() == valid, qPrintable(error));
}

void TestInstall::udevRuleGivesTheSeatUserTheBox_data()
{
    QTest::addColumn<QString>("subsystem");
    QTest::newRow("serial port") << "tty";
    QTest::newRow("capture camera") << "video4linux";
    QTest::newRow("sound input") << "sound";
}

void TestInstall::udevRuleGivesTheSeatUserTheBox()
{
    QFETCH(QString, subsystem);
    bool found = false;
    for (const QList<UdevPair> &pairs : m_rules) {
        if (valueOf(pairs, "SUBSYSTEM", "==") != subsystem)
            continue;
        QCOMPARE(valueOf(pairs, "ATTRS", "==", "idVendor"), QStringLiteral("a5c0"));
        QCOMPARE(valueOf(pairs, "TAG", "+="), QStringLiteral("uaccess"));
        found = true;
    }
    QVERIFY(found);
    // Every jump lands on a label of the file.
    for (const QList<UdevPair> &pairs : m_rules) {
        const QString target = valueOf(pairs, "GOTO", "=");
        QVERIFY(target.isEmpty() || m_labels.contains(target));
    }
    // Newer udev checks rules itself.
    const QString udevadm = QStandardPaths::findExecutable(QStringLiteral("udevadm"));
    if (!udevadm.isEmpty() && run(udevadm, {"verify", "--help"}).exitCode == 0) {
        const Run verify = run(
            udevadm, {"verify", m_root + QStringLiteral("/lib/udev/rules.d/70-tavrokvm.rules")});
        QVERIFY2(verify.exitCode == 0, qPrintable(verify.output));
    }
}

QTEST_GUILESS_MAIN(TestInstall)
#include "tst_install.moc"
