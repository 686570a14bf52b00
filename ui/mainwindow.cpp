#include "ui/mainwindow.h"

#include <QLabel>
#include <QStatusBar>

#include "console/tavrovideo.h"
#include "ui/stylesheet.h"

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(QStringLiteral("MainWindow"));
    setWindowTitle(QStringLiteral("TavroKVM"));
    resize(1280, 800);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/mainwindow.css")));

    auto *resolution = new QLabel(QStringLiteral("..."), this);
    resolution->setObjectName(QStringLiteral("statusSection1"));
    auto *rate = new QLabel(QStringLiteral("Mouse: N/A"), this);
    rate->setObjectName(QStringLiteral("statusSection2"));
    statusBar()->addWidget(resolution);
    statusBar()->addWidget(rate);

    m_video = new TavroVideo(this);
    m_video->setObjectName(QStringLiteral("tavroVideo"));
    setCentralWidget(m_video);

    // Shown while the console holds the keyboard, so that the operator knows why desktop
    // shortcuts do nothing and how to get them back.
    auto *grab = new QLabel(QStringLiteral("⌨ 键盘已捕获（Ctrl+Alt+Shift+Esc 释放）"), this);
    grab->setObjectName(QStringLiteral("keyboardGrabIndicator"));
    grab->setStyleSheet(QStringLiteral("color: #00c853; padding: 0 8px;"));
    grab->hide();
    statusBar()->addPermanentWidget(grab);
    connect(m_video, &TavroVideo::keyboardGrabChanged, grab, &QLabel::setVisible);
}
