// The serial settings panel against the simulated box through the real console: what it
// preselects (the stored port, by item data or by the name before " (", or the first "TK CDC"
// port, stored at 2000000), the rate fallback, what hiding it does to the link, and the protocol
// and coordinate-mode selectors.

#include <QComboBox>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTest>

#include "db/dbmanager.h"
#include "protocol/tkprotocol.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/consolewithbox.h"
#include "ui/mouse.h"

namespace {

// Everything written to `box` so far has reached it once this returns: a marker command goes
// after it and comes back. The index of the marker's event, or -1.
int syncWithBox(BoxSimProcess &box, DeviceUartManager *via)
{
    const int before = int(box.events().size());
    if (!via->sendData(TkProtocol::createAtxPowerPacket(0, 0)))
        return -1;
    int found = -1;
    // Not found in time: `found` stays -1, which the caller checks.
    (void)QTest::qWaitFor(
        [&] {
            const QList<QJsonObject> events = box.events();
            for (int i = before; i < events.size(); ++i) {
                if (events[i].value("event").toString() == QLatin1String("command") &&
                    events[i].value("command").toInt() == TkProtocol::CmdAtxPower) {
                    found = i;
                    return true;
                }
            }
            return false;
        },
        10000);
    return found;
}

int hellosSince(BoxSimProcess &box, int from)
{
    int count = 0;
    const QList<QJsonObject> events = box.events();
    for (int i = from; i < events.size(); ++i)
        count += events[i].value("event").toString() == QLatin1String("hello");
    return count;
}

} // namespace

class TestSerialPanel : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void twoTkCdcPortsTheFirstIsChosenAndStored();
    void panelShowsTheBoxsLink();
    void storedNameBeforeTheDescriptionSelectsItsItem();
    void rateThatIsNoNumberFallsBackTo2M();
    void hidingWithoutAPortTouchesNothing();
    void changingOnlyTheRateReopensAtTheNewRate();
    void protocolAndCoordModeTakeEffectAndAreStored();

private:
    QString did() const { return m_view->getCurrentDeviceDid(); }
    DeviceUartManager *link() const { return UartManager::instance()->getDeviceUartManager(did()); }
    QVariantMap record() const { return DBManager::instance()->getDeviceByDid(did()); }
    BoxSimProcess &box() { return m_console.box(); }
    mouse *openPanel()
    {
        if (!m_view->mouseControl() || !m_view->mouseControl()->isVisible())
            m_view->onBtnMouseClicked();
        mouse *panel = m_view->mouseControl();
        return panel && panel->isVisible() ? panel : nullptr;
    }
    static void closeWithX(mouse *panel)
    {
        panel->findChild<QPushButton *>(QStringLiteral("closeButton"))->click();
    }
    // The panel is a window of its own: the console takes the keyboard again.
    bool consoleInFront()
    {
        m_console.window()->activateWindow();
        return QTest::qWaitFor([this] { return m_view->isAppReallyInForeground(); });
    }
    // The box's link on its own port at 2000000, as the console left it.
    void restoreTheLink()
    {
        link()->updateUartConfig(m_boxPath, 2000000);
        QVERIFY(link()->isConnected());
        QCOMPARE(link()->portName(), m_boxPath);
        QCOMPARE(link()->baudRate(), 2000000);
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
    QString m_boxPath;
};

void TestSerialPanel::initTestCase()
{
    QVERIFY(m_console.start());
    m_view = m_console.view();
    QTRY_VERIFY(link()->isConnected());
    m_boxPath = link()->portName();
    QCOMPARE(QFileInfo(m_boxPath).fileName(), QStringLiteral("tk-box"));
}

void TestSerialPanel::cleanupTestCase()
{
    m_console.stop();
}

void TestSerialPanel::cleanup()
{
    if (m_view && m_view->mouseControl())
        m_view->mouseControl()->hide();
}

void TestSerialPanel::twoTkCdcPortsTheFirstIsChosenAndStored()
{
    // A second box on another link, declared first; the console's box has nothing stored.
    QTemporaryDir dir;
    BoxSimProcess other;
    const QString otherPath = dir.filePath("tk-other");
    QVERIFY(other.startReady(otherPath));
    const QByteArray declaredBefore = qgetenv("TAVROKVM_EXTRA_SERIAL_PORTS");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS",
            (otherPath + "=TK CDC;" + m_boxPath + "=TK CDC").toUtf8());
    UartManager::instance()->preloadSerialPorts();
    QVariantMap stored = record();
    stored.insert("uart_port", QVariant());
    stored.insert("baud_rate", QVariant());
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(stored));
    UartManager::instance()->removeDeviceUartManager(did());
    QVERIFY(link()->portName().isEmpty());

    QVERIFY(!m_view->mouseControl()); // first show: the list is filled
    mouse *panel = openPanel();
    QVERIFY(panel);
    QCOMPARE(panel->objectName(), QStringLiteral("mouseControl"));
    QVERIFY(panel->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    QComboBox *ports = panel->portSelector();
    QCOMPARE(ports->count(), 2);
    QCOMPARE(ports->currentData().toString(), otherPath);
    QCOMPARE(ports->currentText(), otherPath + " (TK CDC)");
    QCOMPARE(record().value("uart_port").toString(), otherPath);
    QCOMPARE(record().value("baud_rate").toInt(), 2000000);
    QVERIFY(link()->isConnected());
    QCOMPARE(link()->portName(), otherPath);
    QVERIFY(!other.next("hello").isEmpty());
    QCOMPARE(panel->baudSelector()->currentData().toInt(), 2000000);
    closeWithX(panel);

    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", declaredBefore);
    UartManager::instance()->preloadSerialPorts();
    restoreTheLink();
    other.stop();
}

void TestSerialPanel::panelShowsTheBoxsLink()
{
    mouse *panel = openPanel();
    QVERIFY(panel);
    panel->on_uartFreshBtn_clicked(); // the other box is gone
    QCOMPARE(panel->portSelector()->count(), 1);
    QCOMPARE(panel->portSelector()->currentData().toString(), m_boxPath);
    QCOMPARE(panel->baudSelector()->currentText(), QStringLiteral("2000000"));
    QCOMPARE(panel->statusLabel()->text(), m_boxPath + ": connected");
    QVERIFY(panel->statusLabel()->styleSheet().contains("#55FF55"));
    // The toolbar button again hides it; hidden with the same settings, the link stays as it is.
    const int mark = syncWithBox(box(), link());
    QSignalSpy hidden(panel, &mouse::hidden);
    m_view->onBtnMouseClicked();
    QVERIFY(!panel->isVisible());
    QCOMPARE(hidden.count(), 1);
    QVERIFY(syncWithBox(box(), link()) > mark);
    QCOMPARE(hellosSince(box(), mark), 0);

    // A closed link shows as such when the panel comes up.
    m_view->closeSerialPort();
    panel = openPanel();
    QCOMPARE(panel->statusLabel()->text(), QStringLiteral("UART: disconnected"));
    QVERIFY(panel->statusLabel()->styleSheet().contains("#FF5555"));
    closeWithX(panel);
    QVERIFY(m_view->openSerialPort(m_boxPath, 2000000));
}

void TestSerialPanel::storedNameBeforeTheDescriptionSelectsItsItem()
{
    // Stored as the whole list text by hand or by an older build: no item data equals it.
    const QString item = m_boxPath + " (TK CDC)";
    QVariantMap stored = record();
    stored.insert("uart_port", item);
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(stored));
    link()->loadUartConfigFromDb();
    QCOMPARE(link()->portName(), item);

    mouse *panel = openPanel();
    QVERIFY(panel);
    QCOMPARE(panel->portSelector()->currentText(), item);
    QCOMPARE(panel->portSelector()->currentData().toString(), m_boxPath);
    // Selecting it changed nothing stored.
    QCOMPARE(record().value("uart_port").toString(), item);
    closeWithX(panel);

    stored.insert("uart_port", m_boxPath);
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(stored));
    link()->loadUartConfigFromDb();
    QCOMPARE(link()->portName(), m_boxPath);
}

void TestSerialPanel::rateThatIsNoNumberFallsBackTo2M()
{
    mouse *panel = openPanel();
    QVERIFY(panel);
    QComboBox *rates = panel->baudSelector();
    rates->setCurrentIndex(rates->findData(115200));
    QCOMPARE(link()->baudRate(), 115200);
    QCOMPARE(record().value("baud_rate").toInt(), 115200);

    rates->addItem(QStringLiteral("fast"), QStringLiteral("fast"));
    rates->setCurrentIndex(rates->count() - 1);
    QCOMPARE(link()->baudRate(), 2000000);
    QCOMPARE(link()->serialPort()->baudRate(), 2000000);
    QCOMPARE(record().value("baud_rate").toInt(), 2000000);
    {
        const QSignalBlocker blocker(rates);
        rates->removeItem(rates->count() - 1);
        rates->setCurrentIndex(rates->findData(2000000));
    }
    closeWithX(panel);
    restoreTheLink();
}

void TestSerialPanel::hidingWithoutAPortTouchesNothing()
{
    mouse *panel = openPanel();
    QVERIFY(panel);
    panel->portSelector()->setCurrentIndex(-1);
    QCOMPARE(link()->portName(), m_boxPath); // no choice is no change
    // The link changes behind the panel's back: hiding must not apply it.
    link()->updateUartConfig(m_boxPath, 57600);
    const int mark = syncWithBox(box(), link());
    QVERIFY(mark >= 0);
    QSignalSpy hidden(panel, &mouse::hidden);
    closeWithX(panel);
    QVERIFY(!panel->isVisible());
    QCOMPARE(hidden.count(), 0);
    QVERIFY(syncWithBox(box(), link()) > mark);
    QCOMPARE(hellosSince(box(), mark), 0);
    QVERIFY(link()->isConnected());
    QCOMPARE(link()->serialPort()->baudRate(), 57600);
    restoreTheLink();
}

void TestSerialPanel::changingOnlyTheRateReopensAtTheNewRate()
{
    mouse *panel = openPanel();
    QVERIFY(panel);
    QCOMPARE(panel->portSelector()->currentData().toString(), m_boxPath);
    const int mark = syncWithBox(box(), link());
    QComboBox *rates = panel->baudSelector();
    rates->setCurrentIndex(rates->findData(115200));
    closeWithX(panel);
    QVERIFY(link()->isConnected());
    QCOMPARE(link()->portName(), m_boxPath);
    QCOMPARE(link()->baudRate(), 115200);
    QCOMPARE(link()->serialPort()->baudRate(), 115200);
    QCOMPARE(record().value("baud_rate").toInt(), 115200);
    QVERIFY(syncWithBox(box(), link()) > mark);
    QVERIFY(hellosSince(box(), mark) >= 1);

    // Shown and hidden again without a change: no reopen.
    panel = openPanel();
    QCOMPARE(panel->baudSelector()->currentData().toInt(), 115200);
    const int unchanged = syncWithBox(box(), link());
    closeWithX(panel);
    QVERIFY(syncWithBox(box(), link()) > unchanged);
    QCOMPARE(hellosSince(box(), unchanged), 0);
    restoreTheLink();
}

void TestSerialPanel::protocolAndCoordModeTakeEffectAndAreStored()
{
    mouse *panel = openPanel();
    QVERIFY(panel);
    QComboBox *protocol = panel->protocolSelector();
    QComboBox *coordMode = panel->coordModeSelector();
    QCOMPARE(protocol->currentText(), QStringLiteral("ch9329"));
    QCOMPARE(coordMode->currentText(), QStringLiteral("absolute"));

    protocol->setCurrentIndex(protocol->findText(QStringLiteral("tavrokvm-v1")));
    coordMode->setCurrentIndex(coordMode->findText(QStringLiteral("relative")));
    QCOMPARE(m_view->uartProtocol(), 1);
    QCOMPARE(m_view->coordMode(), 1);
    QCOMPARE(record().value("protocol").toString(), QStringLiteral("TK_V1"));
    QCOMPARE(record().value("coord_mode").toString(), QStringLiteral("1"));
    closeWithX(panel);
    // The vendor protocol carries no key reports: nothing is sent.
    QVERIFY(consoleInFront());
    QVERIFY(!m_view->sendKeyValue(Qt::Key_A, 0));
    QVERIFY(!m_view->sendKeyValue(Qt::Key_A, 1));

    // What is stored comes back with the box, and the panel shows it.
    m_view->setUartProtocol(0);
    m_view->setCoordMode(0);
    m_view->loadLinkModesForCurrentDevice();
    QCOMPARE(m_view->uartProtocol(), 1);
    QCOMPARE(m_view->coordMode(), 1);
    panel = openPanel();
    QCOMPARE(protocol->currentText(), QStringLiteral("tavrokvm-v1"));
    QCOMPARE(coordMode->currentText(), QStringLiteral("relative"));

    protocol->setCurrentIndex(protocol->findText(QStringLiteral("ch9329")));
    coordMode->setCurrentIndex(coordMode->findText(QStringLiteral("absolute")));
    QCOMPARE(m_view->uartProtocol(), 0);
    QCOMPARE(record().value("protocol").toString(), QStringLiteral("CH9329"));
    QCOMPARE(record().value("coord_mode").toString(), QStringLiteral("0"));
    closeWithX(panel);
    QVERIFY(consoleInFront());
    QVERIFY(m_view->sendKeyValue(Qt::Key_A, 0));
    QVERIFY(m_view->sendKeyValue(Qt::Key_A, 1));
    QVERIFY(!box().next("key_down").isEmpty());
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKPANEL1");
    QApplication app(argc, argv);
    TestSerialPanel test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_serialpanel.moc"
