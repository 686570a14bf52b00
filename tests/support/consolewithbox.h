#pragma once

// The console as a user sees it: a main window whose view has opened the virtual box camera and
// linked to a simulated box on a pseudo-terminal. Header-only; tests define TAVROKVM_BOXSIM_PATH
// and set TAVROKVM_VCAM_DEVICES before the application starts.

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "tests/support/boxsimprocess.h"
#include "ui/mainwindow.h"

class ConsoleWithBox
{
public:
    static constexpr int kOpenTimeoutMs = 20000;

    ~ConsoleWithBox() { stop(); }

    // Starts the box (with `boxArguments` besides its link), shows the window and waits until the
    // camera runs, the box has been greeted and the view has the focus of the active window.
    // False, with a warning, when any step fails.
    bool start(const QStringList &boxArguments = {})
    {
        if (!m_dataDir.isValid() ||
            !DBManager::instance()->initDatabase(m_dataDir.filePath("console.db")))
            return fail("no database");
        const QString link = m_dataDir.filePath("tk-box");
        qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (link + "=TK CDC").toUtf8());
        if (!m_box.startReady(link, boxArguments))
            return fail("the simulated box did not start");

        m_window = new MainWindow;
        m_view = m_window->videoView();
        QSignalSpy started(m_view, &TavroVideo::cameraStarted);
        m_window->show();
        if (!started.wait(kOpenTimeoutMs))
            return fail("the camera did not start");
        if (m_box.next("hello").isEmpty())
            return fail("the box was not greeted");
        if (!QTest::qWaitForWindowActive(m_window))
            return fail("the window did not become active");
        m_view->setFocus();
        if (!QTest::qWaitFor([this] {
                return m_view->hasFocus() &&
                       QGuiApplication::applicationState() == Qt::ApplicationActive;
            }))
            return fail("the view did not get the focus");
        return true;
    }

    void stop()
    {
        delete m_window;
        m_window = nullptr;
        m_view = nullptr;
        m_box.stop();
    }

    BoxSimProcess &box() { return m_box; }
    QString linkPath() const { return m_dataDir.filePath("tk-box"); }
    MainWindow *window() const { return m_window; }
    TavroVideo *view() const { return m_view; }

private:
    static bool fail(const char *why)
    {
        qWarning("console with box: %s", why);
        return false;
    }

    QTemporaryDir m_dataDir;
    BoxSimProcess m_box;
    MainWindow *m_window = nullptr;
    TavroVideo *m_view = nullptr;
};
