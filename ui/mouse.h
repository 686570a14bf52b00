#pragma once

#include <QPoint>
#include <QWidget>

class QComboBox;
class QHBoxLayout;
class QLabel;
class QPushButton;
class QToolButton;
class QVBoxLayout;
class TavroVideo;
class DeviceUartManager;
struct PortListItem;

// The serial settings panel of the current box: port, baud rate, protocol and coordinate mode of
// its keyboard-and-mouse link, with the link's state. A floating tool window owned by the console
// view (its parent). Port and rate changes go to the box's link at once; hiding the panel with a
// valid port chosen emits hidden(), on which the view reopens the link if its settings changed.
class QSpinBox;

class mouse : public QWidget
{
    Q_OBJECT
public:
    explicit mouse(QWidget *parent = nullptr);

    void initializeComPorts();
    void applyDatabaseConfig();
    void updateUartStatusDisplay();

    QComboBox *portSelector() const { return m_comboBoxUart; }
    QComboBox *baudSelector() const { return m_comboBoxBaudRate; }
    QComboBox *protocolSelector() const { return m_comboBoxProtocol; }
    QComboBox *coordModeSelector() const { return m_comboBoxCoordMode; }
    QComboBox *layoutSelector() const { return m_comboBoxLayout; }
    QSpinBox *pasteIntervalSelector() const { return m_spinPasteInterval; }
    QLabel *statusLabel() const { return m_uartStatusLabel; }

signals:
    void hidden();

public slots:
    void on_uartFreshBtn_clicked();
    void onUartConfigChanged();
    void onUartConfigLoaded(const QString &port, int baud);

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void buildUi();
    void connectPortSelector();
    void disconnectPortSelector();
    void fillPortSelector(const QStringList &displayItems);
    QList<PortListItem> portItems() const;
    // Selects the item `port` names (exact, then partial); false, with nothing selected, when
    // none does. `logTag` starts the log lines.
    bool selectPort(const QString &port, const char *logTag);
    void selectBaud(int baud);
    void showLinkModes();
    void onProtocolChosen(int index);
    void onCoordModeChosen(int index);
    void onLayoutChosen(int index);
    void onPasteIntervalChosen(int ms);
    // The current box's link; null (after the given log line) without a box.
    DeviceUartManager *currentLink(const char *noDeviceLog) const;

    TavroVideo *m_view = nullptr;
    QWidget *m_titleBar = nullptr;
    QHBoxLayout *m_titleLayout = nullptr;
    QLabel *m_titleLabel = nullptr;
    QPushButton *m_closeButton = nullptr;
    QVBoxLayout *m_outerLayout = nullptr;
    QComboBox *m_comboBoxUart = nullptr;
    QComboBox *m_comboBoxBaudRate = nullptr;
    QComboBox *m_comboBoxProtocol = nullptr;
    QComboBox *m_comboBoxCoordMode = nullptr;
    QComboBox *m_comboBoxLayout = nullptr;
    QSpinBox *m_spinPasteInterval = nullptr;
    QToolButton *m_uartFreshBtn = nullptr;
    QLabel *m_uartStatusLabel = nullptr;
    bool m_isRefreshing = false;
    bool m_portsInitialized = false;
    bool m_dragging = false;
    QPoint m_dragOffset; // cursor minus the panel's top-left, global
};
