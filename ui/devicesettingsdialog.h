#pragma once

#include <QDialog>

class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QWidget;
class TavroVideo;

// The four choices that tie a box's USB functions together: its video device, audio input,
// serial port and baud rate, as an accordion of four lists. Each choice takes effect at once and
// is stored for the box by the part that owns it; the status bar tells what was done.
class DeviceSettingsDialog : public QDialog
{
    Q_OBJECT
public:
    static constexpr int kSectionCount = 4;

    // `view` may be null: the dialog then only says so in its hint.
    DeviceSettingsDialog(QWidget *parent, TavroVideo *view);

    void toggleAccordion(int index);
    void updateAccordion();
    void refreshAll();
    void refreshVideoList();
    void refreshAudioInputList();
    void refreshSerialList();
    void refreshBaudList();
    void refreshConnectionHint();

    int openSection() const { return m_openIndex; }
    QPushButton *sectionHeader(int index) const { return m_headers[index]; }
    QListWidget *sectionList(int index) const { return m_lists[index]; }
    QLabel *hintLabel() const { return m_hintLabel; }

    // The automatic item of the audio list.
    static const char kAudioAutoMarker[];

public slots:
    void onVideoItemClicked(QListWidgetItem *item);
    void onAudioInputItemClicked(QListWidgetItem *item);
    void onSerialItemClicked(QListWidgetItem *item);
    void onBaudItemClicked(QListWidgetItem *item);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void buildUi();
    QString currentDid() const;
    // Warns under `title` and returns false when no box is chosen.
    bool requireDevice(const QString &title);
    void requestStatus(const QString &message);

    TavroVideo *m_view = nullptr;
    QPushButton *m_headers[kSectionCount] = {};
    QWidget *m_bodies[kSectionCount] = {};
    QListWidget *m_lists[kSectionCount] = {};
    int m_openIndex = 0;
    QLabel *m_hintLabel = nullptr;
};
