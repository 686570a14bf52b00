// The device settings dialog through the real console, with two virtual box cameras, two
// simulated boxes on their links and a private sound server with one input per box: choosing
// the video device switches the console and the lists follow that box; choosing an audio input
// binds it and re-attaches the monitoring (its tone reaches the speaker); the automatic item
// clears the binding; serial and baud choices reach the link and the database; the warnings.

#include <QAudioDevice>
#include <QAudioInput>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include "db/dbmanager.h"
#include "devices/devicelistrules.h"
#include "platform/cameraidentity.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/modalcatcher.h"
#include "tests/support/virtualaudio.h"
#include "ui/devicesettingsdialog.h"

namespace {

VirtualAudio &virtualAudio()
{
    static VirtualAudio audio;
    return audio;
}
bool g_audioStarted = false;

enum { VideoList = 0, AudioList = 1, SerialList = 2, BaudList = 3 };

const QString kNoBox = QStringLiteral("请先连接并选择 UVC 视频设备。");

QListWidgetItem *itemWithData(QListWidget *list, const QVariant &data)
{
    for (int i = 0; i < list->count(); ++i) {
        if (list->item(i)->data(Qt::UserRole) == data)
            return list->item(i);
    }
    return nullptr;
}

QListWidgetItem *itemWithText(QListWidget *list, const QString &text)
{
    const QList<QListWidgetItem *> found = list->findItems(text, Qt::MatchExactly);
    return found.isEmpty() ? nullptr : found.first();
}

// A click on the row, as the operator makes it.
void clickItem(QListWidget *list, QListWidgetItem *item)
{
    QVERIFY(item);
    list->scrollToItem(item);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(item).center());
}

QVariant currentData(QListWidget *list)
{
    return list->currentItem() ? list->currentItem()->data(Qt::UserRole) : QVariant();
}

} // namespace

class TestDeviceSettings : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void menuItemOpensTheDialogModally();
    void videoChoiceSwitchesTheConsoleAndTheListsFollow();
    void audioChoiceBindsAndAutomaticClears();
    void serialAndBaudChoicesReachTheLinkAndTheDatabase();
    void baudBeforeAnyPortWarnsAndChangesNothing();
    void withoutABoxEveryChoiceWarns();

private:
    QString did() const { return m_view->getCurrentDeviceDid(); }
    DeviceUartManager *link() const { return UartManager::instance()->getDeviceUartManager(did()); }
    QVariantMap record() const { return DBManager::instance()->getDeviceByDid(did()); }
    QListWidget *list(int section)
    {
        QTest::mouseClick(m_dialog->sectionHeader(section), Qt::LeftButton);
        return m_dialog->openSection() == section ? m_dialog->sectionList(section) : nullptr;
    }
    QStringList statusMessages(const QSignalSpy &spy) const
    {
        QStringList messages;
        for (const QList<QVariant> &arguments : spy)
            messages << arguments.value(0).toString();
        return messages;
    }
    int hellos(BoxSimProcess &box)
    {
        int count = 0;
        for (const QJsonObject &event : box.events())
            count += event.value("event").toString() == QLatin1String("hello");
        return count;
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
    QTemporaryDir m_dir;
    BoxSimProcess m_otherBox;
    QString m_boxPath;
    QString m_otherPath;
    QByteArray m_firstCamera;
    QByteArray m_otherCamera;
    DeviceSettingsDialog *m_dialog = nullptr;
};

void TestDeviceSettings::initTestCase()
{
    QVERIFY(m_console.start());
    m_view = m_console.view();
    QTRY_VERIFY(link()->isConnected());
    m_boxPath = link()->portName();
    m_firstCamera = m_view->currentDeviceId();

    // The second box: its own link, and its camera's stored choices.
    m_otherPath = m_dir.filePath("tk-box-2");
    QVERIFY(m_otherBox.startReady(m_otherPath));
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS",
            (m_boxPath + "=TK CDC;" + m_otherPath + "=TK CDC").toUtf8());
    for (const IdentifiedCamera &camera : m_view->getIdentifiedUvcDeviceList()) {
        if (camera.identity != m_firstCamera)
            m_otherCamera = camera.identity;
    }
    QVERIFY(!m_otherCamera.isEmpty());
    const QString otherDid = deviceDidForCameraId(m_otherCamera);
    QVariantMap other = DBManager::instance()->getDeviceByDid(otherDid);
    other.insert("did", otherDid);
    other.insert("uart_port", m_otherPath);
    other.insert("baud_rate", 115200);
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(other));
}

void TestDeviceSettings::cleanupTestCase()
{
    m_console.stop();
    m_otherBox.stop();
}

void TestDeviceSettings::init()
{
    m_dialog = new DeviceSettingsDialog(m_console.window(), m_view);
    m_dialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_dialog));
}

void TestDeviceSettings::cleanup()
{
    delete m_dialog;
    m_dialog = nullptr;
}

void TestDeviceSettings::menuItemOpensTheDialogModally()
{
    QMenu *menu = m_console.window()->deviceMenu();
    QVERIFY(menu);
    emit menu->aboutToShow();
    const QList<QAction *> actions = menu->actions();
    QVERIFY(!actions.isEmpty());
    QAction *settings = actions.first();
    QCOMPARE(settings->text(), QStringLiteral("设备设置…"));
    QVERIFY(settings->isEnabled());
    QCOMPARE(settings->toolTip(), QStringLiteral("视频设备、输入音频、串口、波特率"));

    QString seenTitle;
    QSize seenSize;
    QTimer closer;
    closer.setInterval(10);
    connect(&closer, &QTimer::timeout, [&] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog || dialog->objectName() != QLatin1String("deviceSettingsDialog"))
            return;
        seenTitle = dialog->windowTitle();
        seenSize = dialog->size();
        dialog->reject();
    });
    closer.start();
    settings->trigger(); // returns when the dialog is closed
    closer.stop();
    QCOMPARE(seenTitle, QStringLiteral("设备设置"));
    QCOMPARE(seenSize, QSize(598, 676));
}

void TestDeviceSettings::videoChoiceSwitchesTheConsoleAndTheListsFollow()
{
    QListWidget *videos = list(VideoList);
    QVERIFY(videos);
    QCOMPARE(videos->count(), 2);
    QCOMPARE(currentData(videos).toByteArray(), m_firstCamera);
    QCOMPARE(currentData(list(SerialList)).toString(), m_boxPath);
    QCOMPARE(list(BaudList)->currentItem()->text(), QStringLiteral("2000000"));

    QSignalSpy status(m_view, &TavroVideo::statusBarMessageRequested);
    const int otherHellos = hellos(m_otherBox);
    clickItem(list(VideoList), itemWithData(videos, m_otherCamera));
    QCOMPARE(m_view->currentDeviceId(), m_otherCamera);
    QVERIFY(statusMessages(status).contains(QStringLiteral("已切换视频设备")));
    QVERIFY(m_view->isCameraActive());
    // The other box's stored link is opened, and the lists show its settings.
    QTRY_VERIFY(hellos(m_otherBox) > otherHellos);
    QCOMPARE(link()->portName(), m_otherPath);
    QCOMPARE(currentData(list(SerialList)).toString(), m_otherPath);
    QCOMPARE(list(BaudList)->currentItem()->text(), QStringLiteral("115200"));
    QCOMPARE(currentData(list(AudioList)).toByteArray(), m_view->savedAudioInputDeviceIdFromDb());
    QCOMPARE(m_dialog->hintLabel()->text(),
             QStringLiteral("输入音频：已手动绑定 id %1。串口：%2，波特率 115200")
                 .arg(QString::fromUtf8(m_view->savedAudioInputDeviceIdFromDb()), m_otherPath));

    // And back.
    clickItem(list(VideoList), itemWithData(list(VideoList), m_firstCamera));
    QCOMPARE(m_view->currentDeviceId(), m_firstCamera);
    QVERIFY(link()->isConnected());
    QCOMPARE(currentData(list(SerialList)).toString(), m_boxPath);
    QCOMPARE(list(BaudList)->currentItem()->text(), QStringLiteral("2000000"));
}

void TestDeviceSettings::audioChoiceBindsAndAutomaticClears()
{
    if (!g_audioStarted)
        QSKIP("no sound server (pulseaudio) on this machine");
    QListWidget *inputs = list(AudioList);
    QVERIFY(inputs);
    QCOMPARE(inputs->count(), 3); // the automatic item and one input per box
    QCOMPARE(inputs->item(0)->data(Qt::UserRole).toByteArray(), QByteArray("__audio_auto__"));
    const QByteArray paired = m_view->savedAudioInputDeviceIdFromDb();
    QVERIFY(!paired.isEmpty());
    QCOMPARE(currentData(inputs).toByteArray(), paired);
    QListWidgetItem *otherInput = nullptr;
    for (int i = 1; i < inputs->count(); ++i) {
        if (inputs->item(i)->data(Qt::UserRole).toByteArray() != paired)
            otherInput = inputs->item(i);
    }
    QVERIFY(otherInput);
    const QByteArray chosen = otherInput->data(Qt::UserRole).toByteArray();

    QSignalSpy status(m_view, &TavroVideo::statusBarMessageRequested);
    clickItem(inputs, otherInput);
    QCOMPARE(m_view->savedAudioInputDeviceIdFromDb(), chosen);
    QCOMPARE(record().value("audio_input_device_id").toString(),
             QString::fromLatin1(chosen.toHex()));
    QVERIFY(m_view->sessionAudioInput());
    QCOMPARE(m_view->sessionAudioInput()->device().id(), chosen);
    QVERIFY(statusMessages(status).contains(
        QStringLiteral("已保存并立即重挂监听，请听声确认是否为该路输入音频")));
    QVERIFY(m_dialog->hintLabel()->text().startsWith(
        QStringLiteral("输入音频：已手动绑定 id %1。").arg(QString::fromUtf8(chosen))));
    // The speaker now plays the chosen input's tone (input N carries 440·N Hz).
    const double tone = 440.0 * QByteArray(chosen).remove(0, 7).toInt(); // "tkaudioN"
    QVERIFY(tone > 0);
    QTRY_VERIFY_WITH_TIMEOUT(VirtualAudio::toneShare(virtualAudio().recordSpeaker(500), tone) > 0.5,
                             10000);

    // The automatic item: no binding, paired by order again.
    clickItem(inputs, inputs->item(0));
    QVERIFY(m_view->savedAudioInputDeviceIdFromDb().isEmpty());
    QCOMPARE(record().value("audio_input_device_id").toString(), QString());
    QVERIFY(statusMessages(status).contains(
        QStringLiteral("已改为自动配对，监听已立即重挂，请听声确认")));
    QVERIFY(m_dialog->hintLabel()->text().startsWith(QStringLiteral("输入音频：顺序自动配对。")));
    QVERIFY(m_view->sessionAudioInput());
    QCOMPARE(m_view->sessionAudioInput()->device().id(), paired);
}

void TestDeviceSettings::serialAndBaudChoicesReachTheLinkAndTheDatabase()
{
    QListWidget *ports = list(SerialList);
    QVERIFY(ports);
    QCOMPARE(ports->count(), 2);
    QSignalSpy status(m_view, &TavroVideo::statusBarMessageRequested);

    int before = hellos(m_otherBox);
    clickItem(ports, itemWithData(ports, m_otherPath));
    QCOMPARE(link()->portName(), m_otherPath);
    QVERIFY(link()->isConnected());
    QCOMPARE(record().value("uart_port").toString(), m_otherPath);
    QCOMPARE(record().value("baud_rate").toInt(), 2000000);
    QTRY_VERIFY(hellos(m_otherBox) > before);
    QVERIFY(statusMessages(status).contains(QStringLiteral("串口已设为: %1").arg(m_otherPath)));

    before = hellos(m_otherBox);
    QListWidget *rates = list(BaudList);
    QCOMPARE(rates->count(), 13);
    clickItem(rates, itemWithText(rates, QStringLiteral("921600")));
    QCOMPARE(link()->baudRate(), 921600);
    QCOMPARE(link()->serialPort()->baudRate(), 921600);
    QCOMPARE(record().value("baud_rate").toInt(), 921600);
    QTRY_VERIFY(hellos(m_otherBox) > before);
    QVERIFY(statusMessages(status).contains(QStringLiteral("波特率: 921600")));
    QVERIFY(m_dialog->hintLabel()->text().endsWith(
        QStringLiteral("。串口：%1，波特率 921600").arg(m_otherPath)));

    // Back to the box's own link; the rate goes along.
    clickItem(list(SerialList), itemWithData(list(SerialList), m_boxPath));
    QCOMPARE(link()->portName(), m_boxPath);
    QCOMPARE(link()->baudRate(), 921600);
    clickItem(list(BaudList), itemWithText(list(BaudList), QStringLiteral("2000000")));
    QCOMPARE(link()->baudRate(), 2000000);
    QCOMPARE(record().value("uart_port").toString(), m_boxPath);
    QCOMPARE(record().value("baud_rate").toInt(), 2000000);
}

void TestDeviceSettings::baudBeforeAnyPortWarnsAndChangesNothing()
{
    QVariantMap stored = record();
    stored.insert("uart_port", QVariant());
    stored.insert("baud_rate", QVariant());
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(stored));
    UartManager::instance()->removeDeviceUartManager(did());
    QVERIFY(link()->portName().isEmpty());
    m_dialog->refreshAll();
    QVERIFY(!list(SerialList)->currentItem());
    QVERIFY(m_dialog->hintLabel()->text().endsWith(
        QStringLiteral("。串口未连接，请在「串口设备列表」中选端口。")));

    ModalCatcher catcher;
    QListWidget *rates = list(BaudList);
    clickItem(rates, itemWithText(rates, QStringLiteral("9600")));
    QCOMPARE(catcher.count(QStringLiteral("波特率"),
                           QStringLiteral("请先在「串口设备列表」中选择串口。")),
             1);
    QVERIFY(link()->portName().isEmpty());
    QCOMPARE(link()->baudRate(), 2000000);
    QVERIFY(record().value("baud_rate").isNull());
    QVERIFY(record().value("uart_port").isNull());
    QCOMPARE(rates->currentItem()->text(), QStringLiteral("2000000"));

    // Choosing the port then links the box at the rate it has.
    const int before = hellos(m_console.box());
    clickItem(list(SerialList), itemWithData(list(SerialList), m_boxPath));
    QVERIFY(link()->isConnected());
    QCOMPARE(record().value("uart_port").toString(), m_boxPath);
    QCOMPARE(record().value("baud_rate").toInt(), 2000000);
    QTRY_VERIFY(hellos(m_console.box()) > before);
    QCOMPARE(catcher.boxes.size(), 1);
}

void TestDeviceSettings::withoutABoxEveryChoiceWarns()
{
    // A console view that opened no camera.
    DBManager *db = DBManager::instance();
    QVERIFY(db->setAppSetting("multi_same_display", "1"));
    TavroVideo idle;
    QVERIFY(db->setAppSetting("multi_same_display", "0"));
    QTest::qWait(0);
    QVERIFY(idle.getCurrentDeviceDid().isEmpty());
    const QVariantMap before = record();

    DeviceSettingsDialog dialog(nullptr, &idle);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QCOMPARE(dialog.hintLabel()->text(),
             QStringLiteral("提示：请先选择 UVC 视频设备，以便关联输入音频与 UART。"));
    ModalCatcher catcher;
    const struct
    {
        int section;
        const char *title;
    } choices[] = {{AudioList, "输入音频"}, {SerialList, "串口"}, {BaudList, "波特率"}};
    for (const auto &choice : choices) {
        QTest::mouseClick(dialog.sectionHeader(choice.section), Qt::LeftButton);
        QListWidget *items = dialog.sectionList(choice.section);
        clickItem(items, items->item(items->count() - 1));
        QCOMPARE(catcher.count(QString::fromUtf8(choice.title), kNoBox), 1);
    }
    QCOMPARE(catcher.boxes.size(), 3);
    QCOMPARE(record(), before);

    // Without any "TK CDC" port the serial list says so.
    const QByteArray declared = qgetenv("TAVROKVM_EXTRA_SERIAL_PORTS");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", "");
    dialog.refreshSerialList();
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", declared);
    QListWidget *ports = dialog.sectionList(SerialList);
    QCOMPARE(ports->count(), 1);
    QCOMPARE(ports->item(0)->text(), QStringLiteral("(未检测到符合 TK…CDC 的串口)"));

    // Without a view: only the hint speaks; the lists say there is nothing.
    DeviceSettingsDialog orphan(nullptr, nullptr);
    orphan.show();
    QCOMPARE(orphan.hintLabel()->text(), QStringLiteral("内部错误：未绑定视频模块。"));
    QCOMPARE(orphan.sectionList(VideoList)->item(0)->text(),
             QStringLiteral("(未检测到符合 *usb*video* 的 UVC 设备)"));
    QCOMPARE(orphan.sectionHeader(VideoList)->text(), QStringLiteral("▼ 1. 视频设备列表"));
    QCOMPARE(orphan.sectionHeader(BaudList)->text(), QStringLiteral("▶ 4. 波特率"));
}

int main(int argc, char **argv)
{
    g_audioStarted = virtualAudio().start(2);
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKSET001,box:TKSET002");
    QApplication app(argc, argv);
    TestDeviceSettings test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_devicesettings.moc"
