// The Debian package, made by CPack from the build folder (the build itself is the suite's; a
// package from a fresh clone is the same `cmake --build <dir> --target package` after it): its
// file list, its declared dependencies, and lintian without errors.

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {

struct Run
{
    int exitCode = -1;
    QString output;
};

Run run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(180000))
        return result;
    result.output = QString::fromLocal8Bit(process.readAll());
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

} // namespace

class TestPackage : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void fileList();
    void dependencies_data();
    void dependencies();
    void lintianFindsNoError();

private:
    QTemporaryDir m_dir;
    QString m_package;
    QStringList m_depends;
};

void TestPackage::initTestCase()
{
    QVERIFY(m_dir.isValid());
    const Run cpack = run(QStringLiteral(TAVROKVM_CPACK),
                          {QStringLiteral("-G"), QStringLiteral("DEB"), QStringLiteral("--config"),
                           QStringLiteral(TAVROKVM_BUILD_DIR "/CPackConfig.cmake"),
                           QStringLiteral("-B"), m_dir.path()});
    QVERIFY2(cpack.exitCode == 0, qPrintable(cpack.output));
    m_package = m_dir.filePath(QStringLiteral("tavrokvm_" TAVROKVM_VERSION "_amd64.deb"));
    QVERIFY2(QFile::exists(m_package), qPrintable(cpack.output));

    const Run depends = run(QStringLiteral("dpkg-deb"),
                            {QStringLiteral("-f"), m_package, QStringLiteral("Depends")});
    QCOMPARE(depends.exitCode, 0);
    for (const QString &entry : depends.output.split(QLatin1Char(','), Qt::SkipEmptyParts))
        m_depends << entry.trimmed().section(QLatin1Char(' '), 0, 0);
}

void TestPackage::fileList()
{
    const Run contents = run(QStringLiteral("dpkg-deb"), {QStringLiteral("-c"), m_package});
    QCOMPARE(contents.exitCode, 0);
    QStringList files;
    for (const QString &line : contents.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (!line.startsWith(QLatin1Char('d')))
            files << line.section(QLatin1Char(' '), -1).mid(1); // "./usr/..." -> "/usr/..."
    }
    files.sort();
    QStringList expected = {
        "/usr/bin/tavrokvm",
        "/usr/bin/tavrokvm-boxsim",
        "/usr/lib/tavrokvm/gstreamer-1.0/libgsttavrokvmvcam.so",
        "/usr/lib/udev/rules.d/70-tavrokvm.rules",
        "/usr/share/applications/org.tavrokvm.TavroKVM.desktop",
        "/usr/share/doc/tavrokvm/changelog.gz",
        "/usr/share/doc/tavrokvm/copyright",
        "/usr/share/metainfo/org.tavrokvm.TavroKVM.metainfo.xml",
    };
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256})
        expected << QStringLiteral("/usr/share/icons/hicolor/%1x%1/apps/org.tavrokvm.TavroKVM.png")
                        .arg(size);
    expected.sort();
    // Nothing more: no tests, benchmarks, static libraries or headers.
    QCOMPARE(files, expected);
}

void TestPackage::dependencies_data()
{
    QTest::addColumn<QString>("package");
    // Found by dpkg-shlibdeps from what the program links.
    for (const char *library :
         {"libqt6core6", "libqt6widgets6", "libqt6multimedia6", "libqt6serialport6", "libqt6sql6",
          "libqt6network6", "libquazip1-qt6-1", "libjpeg62-turbo", "libyuv0", "libgstreamer1.0-0"})
        QTest::newRow(library) << QString::fromLatin1(library);
    // Loaded at run time, from the one list of such packages.
    QFile list(QStringLiteral(TAVROKVM_RUNTIME_PACKAGES));
    QVERIFY(list.open(QIODevice::ReadOnly | QIODevice::Text));
    for (const QString &line : QString::fromUtf8(list.readAll()).split(QLatin1Char('\n'))) {
        if (!line.trimmed().isEmpty() && !line.startsWith(QLatin1Char('#')))
            QTest::newRow(qPrintable(line.trimmed())) << line.trimmed();
    }
}

void TestPackage::dependencies()
{
    QFETCH(QString, package);
    QVERIFY2(m_depends.contains(package), qPrintable(m_depends.join(QLatin1String(", "))));
}

void TestPackage::lintianFindsNoError()
{
    const QString lintian = QStandardPaths::findExecutable(QStringLiteral("lintian"));
    if (lintian.isEmpty())
        QSKIP("lintian is not installed");
#ifdef TAVROKVM_SANITIZED
    QSKIP("a sanitized build is not what is shipped");
#endif
    const Run check = run(lintian, {m_package});
    QStringList errors;
    for (const QString &line : check.output.split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("E: ")))
            errors << line;
    }
    QVERIFY2(errors.isEmpty(), qPrintable(check.output));
    QVERIFY2(check.exitCode == 0 || !check.output.contains(QLatin1String("E: ")),
             qPrintable(check.output));
}

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"
