// The interface language the program starts with, for the system language named by LANGUAGE and
// LANG (set per run by CTest): the translator is chosen the way start-up chooses it, then the
// main window's menus and the About dialog are read. TAVROKVM_EXPECTED_LANGUAGE says what they
// must read in: "en" or "zh" (the built-in texts).

#include <QApplication>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QRegularExpression>
#include <QTest>
#include <QTextBrowser>
#include <QTranslator>

#include "app/translation.h"
#include "ui/mainwindow.h"
#include "update/aboutdialog.h"

namespace {

bool hasHan(const QString &text)
{
    static const QRegularExpression han(QStringLiteral("\\p{Han}"));
    return han.match(text).hasMatch();
}

// Every text a user can read on `root` and its children: titles, labels, buttons, tool tips,
// placeholders, item views' headers and the actions of menus.
QStringList visibleTexts(QWidget *root)
{
    QStringList texts;
    QList<QWidget *> widgets = root->findChildren<QWidget *>();
    widgets.prepend(root);
    for (QWidget *widget : widgets) {
        texts << widget->windowTitle() << widget->toolTip();
        for (const char *property : {"text", "placeholderText", "title"}) {
            const QVariant value = widget->property(property);
            if (value.typeId() == QMetaType::QString)
                texts << value.toString();
        }
        if (auto *browser = qobject_cast<QTextBrowser *>(widget))
            texts << browser->toPlainText();
        for (QAction *action : widget->actions())
            texts << action->text() << action->toolTip();
    }
    texts.removeAll(QString());
    return texts;
}

} // namespace

class TestInterfaceLanguage : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void menuTitles();
    void aboutDialog();
    void englishMainWindowHasNoChineseLeft();

private:
    QTranslator m_translator;
    QString m_loaded;
    bool m_english = false;
};

void TestInterfaceLanguage::initTestCase()
{
    const QByteArray expected = qgetenv("TAVROKVM_EXPECTED_LANGUAGE");
    QVERIFY2(expected == "en" || expected == "zh", "TAVROKVM_EXPECTED_LANGUAGE must be en or zh");
    m_english = expected == "en";
    const QStringList languages = QLocale::system().uiLanguages();
    m_loaded = loadInterfaceTranslation(m_translator, languages);
    if (!m_loaded.isEmpty())
        QApplication::installTranslator(&m_translator);
    qInfo().noquote() << "languages" << languages.join(',') << "loaded" << m_loaded;
    if (m_english)
        QVERIFY2(m_loaded.startsWith(QLatin1String(":/i18n/tavrokvm_en")), qPrintable(m_loaded));
    else
        QVERIFY2(!m_loaded.contains(QLatin1String("_en")), qPrintable(m_loaded));
}

void TestInterfaceLanguage::menuTitles()
{
    MainWindow window;
    auto *bar = window.findChild<QMenuBar *>(QStringLiteral("menuBar"));
    QVERIFY(bar);
    QStringList titles;
    for (QAction *action : bar->actions())
        titles << action->text();
    const QStringList expected = m_english ? QStringList{"TavroKVM", "&Device", "&Tools"}
                                           : QStringList{"TavroKVM", "设备(&D)", "工具(&T)"};
    QCOMPARE(titles, expected);
    // The items of the application menu too.
    QStringList appItems;
    for (QAction *action : bar->actions().first()->menu()->actions()) {
        if (!action->isSeparator())
            appItems << action->text();
    }
    QCOMPARE(appItems.first(), m_english ? QStringLiteral("About") : QStringLiteral("关于"));
    QCOMPARE(appItems.last(), m_english ? QStringLiteral("Close") : QStringLiteral("关闭"));
}

void TestInterfaceLanguage::aboutDialog()
{
    AboutDialog dialog(nullptr, true);
    QCOMPARE(dialog.windowTitle(), m_english ? QStringLiteral("About") : QStringLiteral("关于"));
    const QString notice = visibleTexts(&dialog).join('\n');
    QVERIFY(notice.contains(m_english ? QStringLiteral("the desktop console for a KVM-over-USB box")
                                      : QStringLiteral("KVM-over-USB 设备的桌面控制台")));
    QCOMPARE(hasHan(notice), !m_english);
}

void TestInterfaceLanguage::englishMainWindowHasNoChineseLeft()
{
    if (!m_english)
        QSKIP("the built-in texts are Chinese");
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    emit window.deviceMenu()->aboutToShow();
    QStringList untranslated;
    for (const QString &text : visibleTexts(&window)) {
        if (hasHan(text))
            untranslated << text;
    }
    untranslated.removeDuplicates();
    QVERIFY2(untranslated.isEmpty(), qPrintable("\n" + untranslated.join('\n')));
}

QTEST_MAIN(TestInterfaceLanguage)
#include "tst_interfacelanguage.moc"
