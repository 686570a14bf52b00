#include "ui/mainwindow.h"

#include <QLabel>

#include "ui/stylesheet.h"

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(QStringLiteral("MainWindow"));
    setWindowTitle(QStringLiteral("TavroKVM"));
    resize(1280, 800);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/mainwindow.css")));

    auto *placeholder = new QLabel(QStringLiteral("TavroKVM"), this);
    placeholder->setObjectName(QStringLiteral("placeholderLabel"));
    placeholder->setAlignment(Qt::AlignCenter);
    setCentralWidget(placeholder);
}
