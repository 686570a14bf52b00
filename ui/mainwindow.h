#pragma once

#include <QMainWindow>

class TavroVideo;

// The application window. For now it carries the title, icon, dark background, the console view
// as its central widget and the first two status sections; the title bar, button bar and pages
// join it as they are built.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget *parent = nullptr);

    TavroVideo *videoView() const { return m_video; }

private:
    TavroVideo *m_video = nullptr;
};
