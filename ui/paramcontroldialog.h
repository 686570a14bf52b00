#pragma once

#include <QByteArray>
#include <QDialog>
#include <QList>

class QCheckBox;
class QPushButton;
class QTimer;
class TavroVideo;

// Parameters and control of the box shown in the console: mouse micro-move, cursor correction
// and its test, device restart, and the MPR test that sends mouse reports at 500 per second.
class ParamControlDialog : public QDialog
{
    Q_OBJECT
public:
    ParamControlDialog(QWidget *parent, TavroVideo *view);
    ~ParamControlDialog() override;

    void initStateFromDevice();
    void startMprTest();
    void stopMprTest();
    void updateMprTestButtonText();
    bool isMprTestRunning() const { return m_mprRunning; }

    // The four frames of the MPR cycle: press, release, press2, release2.
    static const QList<QByteArray> &mprFrames();

public slots:
    void onMprTestTimerTick();
    void reject() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    TavroVideo *m_view = nullptr;
    QCheckBox *m_autoMoveBox = nullptr;
    QCheckBox *m_cursorCorrectionBox = nullptr;
    QPushButton *m_testButton = nullptr;
    QPushButton *m_restartButton = nullptr;
    QPushButton *m_mprButton = nullptr;
    QTimer *m_mprTimer = nullptr;
    bool m_mprRunning = false;
    int m_mprIndex = 0;
};
