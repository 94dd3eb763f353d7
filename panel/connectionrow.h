// The row above everything: the port chooser, line recording, supervision and the state check.
#pragma once

#include <QString>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

namespace panel {

class ConnectionRow : public QWidget
{
    Q_OBJECT
public:
    explicit ConnectionRow(QWidget* parent = nullptr);

    // The simulator and the machine's serial ports, choosing the one typed or chosen before,
    // otherwise `configured` (empty: the simulator).
    void listPorts(const QString& configured);
    // The chosen port's device path, or the path typed; empty for the simulator.
    QString chosenPort() const;
    void setRecordingFolder(const QString& folder) { recordingFolder = folder; }
    // Records into this file rather than a new one in the folder, from now on.
    void recordInto(const QString& file);
    void showRecording(bool on, const QString& path);
    void setControlsEnabled(bool busy, bool accepting, bool deviceFree);

signals:
    void rescanRequested();
    void connectRequested();
    void checkStateRequested();
    void supervisionSwitched(bool on);
    // An empty path stops recording.
    void recordingRequested(const QString& path);

private:
    void recordSwitched(bool on);

    QString recordingFile;
    QString recordingFolder;

    QComboBox* portBox;
    QPushButton* rescanButton;
    QPushButton* connectButton;
    QCheckBox* supervisionBox;
    QCheckBox* recordBox;
    QLabel* recordLabel;
    QPushButton* checkStateButton;
};

} // namespace panel
