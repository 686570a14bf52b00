#include "ui/custommessagebox.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/stylesheet.h"

namespace {
constexpr int kIconSize = 40;
}

CustomMessageBox::CustomMessageBox(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("customMessageBox"));
    // Frameless like the main window: the title is drawn inside.
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint);
    setModal(true);
    setMinimumWidth(340);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/custommessagebox.css")));

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 16);
    layout->setSpacing(14);

    m_titleLabel = new QLabel(this);
    m_titleLabel->setObjectName(QStringLiteral("titleLabel"));
    m_titleLabel->hide();
    layout->addWidget(m_titleLabel);

    auto *body = new QHBoxLayout;
    body->setSpacing(14);
    m_iconLabel = new QLabel(this);
    m_iconLabel->setObjectName(QStringLiteral("iconLabel"));
    m_iconLabel->setFixedSize(kIconSize, kIconSize);
    m_iconLabel->hide();
    body->addWidget(m_iconLabel, 0, Qt::AlignTop);
    m_textLabel = new QLabel(this);
    m_textLabel->setObjectName(QStringLiteral("textLabel"));
    m_textLabel->setWordWrap(true);
    m_textLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    body->addWidget(m_textLabel, 1);
    layout->addLayout(body);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    m_okButton = new QPushButton(tr("确定"), this);
    m_okButton->setObjectName(QStringLiteral("okButton"));
    m_okButton->setDefault(true);
    connect(m_okButton, &QPushButton::clicked, this, &QDialog::accept);
    buttons->addWidget(m_okButton);
    layout->addLayout(buttons);
}

void CustomMessageBox::setTitle(const QString &title)
{
    setWindowTitle(title);
    m_titleLabel->setText(title);
    m_titleLabel->setVisible(!title.isEmpty());
}

void CustomMessageBox::setText(const QString &text)
{
    m_textLabel->setText(text);
}

void CustomMessageBox::setIcon(const QPixmap &pixmap)
{
    m_iconLabel->setPixmap(
        pixmap.isNull()
            ? QPixmap()
            : pixmap.scaled(kIconSize, kIconSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    m_iconLabel->setVisible(!pixmap.isNull());
}

void CustomMessageBox::setOkButtonText(const QString &text)
{
    m_okButton->setText(text);
}
