#pragma once

#include <QMainWindow>

// The application window. For now it only carries the title, icon and dark background;
// the title bar, button bar, pages and status bar join it as they are built.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget *parent = nullptr);
};
