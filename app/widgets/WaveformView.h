// The outline of a clip, the part that has been played in the colour of what is selected.
//
// Lives on the main thread. It shows only what it is given and takes no input; whoever places it
// names it for screen readers, as it carries no text.
#pragma once

#include <QWidget>
#include <vector>

#include "core/audio/WaveformPeaks.h"

namespace zepho {

class WaveformView : public QWidget {
public:
    explicit WaveformView(QWidget* parent = nullptr);

    // Any number of columns: they are fitted to the width. None leave a line of silence. The
    // position goes back to the start.
    void setPeaks(std::vector<WaveformPeak> next);
    // How much of the clip has been played, from 0 to 1.
    void setPosition(double part);
    [[nodiscard]] double position() const { return played; }

    // Both follow the font.
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    // How far the loudest sample reaches from the middle, 0..1, in one of so many bars.
    [[nodiscard]] float reach(int bar, int bars) const;

    std::vector<WaveformPeak> peaks;
    double played = 0;
};

}  // namespace zepho
