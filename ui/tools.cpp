#include "ui/tools.h"

#include <QCloseEvent>
#include <QDebug>

#include "ui/logmng.h"
#include "ui/stylesheet.h"
#include "ui_tools.h"

tools::tools(QWidget *parent) : QWidget(parent), ui(new Ui::tools)
{
    ui->setupUi(this);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/tools.css")));

    m_logMng = new logMng(ui->page_2);
    ui->page_2->layout()->addWidget(m_logMng);
    connect(ui->logToolBtn, &QPushButton::clicked, this, &tools::showLogMngPage);
    // The log manager is the only tool: the page opens on it.
    showLogMngPage();
}

tools::~tools()
{
    delete ui;
}

void tools::showLogMngPage()
{
    m_logMng->refreshLogTable();
    ui->toolStackWidget->setCurrentWidget(ui->page_2);
    ui->logToolBtn->setChecked(true);
}

void tools::closeEvent(QCloseEvent *event)
{
    qDebug().noquote() << "[tools] 工具页关闭";
    QWidget::closeEvent(event);
}
