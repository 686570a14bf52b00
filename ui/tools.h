#pragma once

#include <QWidget>

namespace Ui {
class tools;
}
class logMng;

// The tool page: a column of tool buttons and a stack with one page per tool. Its one tool is the
// log manager.
class tools : public QWidget
{
    Q_OBJECT
public:
    explicit tools(QWidget *parent = nullptr);
    ~tools() override;

    // Brings the log manager's page to the front with a freshly read table.
    void showLogMngPage();

    logMng *logManager() const { return m_logMng; }

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    Ui::tools *ui;
    logMng *m_logMng = nullptr;
};
