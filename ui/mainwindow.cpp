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
}
