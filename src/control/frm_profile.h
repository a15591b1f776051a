#pragma once

#include "plant/child_window.h"

#include <QStringList>
#include <QVector>
#include <array>
#include <optional>

class PacedSequence;
class Plot;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QListWidget;
class QPushButton;
class QSlider;
class QSpinBox;
class QTabWidget;
class QToolBar;

// Eight segments of ramp time, soak time and setpoint, as a profiler controller runs them.
struct Profile {
    static constexpr int kSegments = 8;
    std::array<double, kSegments> setPoints{};
    // For segment s: 4s ramp hours, 4s + 1 ramp minutes, 4s + 2 soak hours, 4s + 3 soak minutes.
    std::array<double, 4 * kSegments> segTimes{};
    bool operator==(const Profile&) const = default;
};

// The profile block of a K8 or K20: registers 1057 to 1080, the eight setpoints in tenths, then
// each segment's ramp and soak in whole minutes.
inline constexpr int kProfileFirstRegister = 1057;
inline constexpr int kProfileRegisters = 24;
// Nothing when a value does not fit its register (below 0 or beyond 65535 once rounded).
std::optional<QVector<quint16>> profileBlock(const Profile& profile);
Profile profileFromBlock(const QVector<quint16>& block);

// The .rec recipe's 40 lines before encipherment, and back. A line that is no number reads as 0;
// nothing for a file of fewer than 40 lines or more than 56.
QStringList profileRecipeLines(const Profile& profile);
std::optional<Profile> parseProfileRecipe(const QStringList& lines);

// "Profiler": a profile's segments and its plot, kept as .rec recipes and moved to and from a
// K8 or K20 in one block transfer each way; a download is signed and refused while the
// controller runs a profile.
class FrmProfile : public ChildWindow {
    Q_OBJECT
public:
    explicit FrmProfile(QWidget* parent = nullptr);

    std::array<QDoubleSpinBox*, Profile::kSegments> pSetPoint{};
    std::array<QSpinBox*, 4 * Profile::kSegments> segTime{};
    QComboBox* ProfileCSelect = nullptr;
    QLabel* icurFile = nullptr;
    QTabWidget* SSTab1 = nullptr;
    QToolBar* Toolbar1 = nullptr;
    QPushButton* CloseWindow = nullptr;
    PacedSequence* ModProfRead = nullptr;
    PacedSequence* ModProfWrite = nullptr;
    QString recipeFile;

    // The profile plot page.
    Plot* ProfPlotx1 = nullptr;
    QPushButton* iBgColor = nullptr;
    QPushButton* iTxtColor = nullptr;
    QPushButton* iLineColor = nullptr;
    QPushButton* iDotColor = nullptr;
    QSpinBox* XminorSet = nullptr;
    QSpinBox* YminorSet = nullptr;
    QSlider* DateSlider = nullptr;
    QSlider* valueSlider = nullptr;
    QListWidget* List1 = nullptr;
    double keptXSpan = 0.0;
    double keptYSpan = 0.0;

    Profile profile() const;
    void setProfile(const Profile& profile);

    void newRecipe();
    void openRecipe();
    void saveRecipe();
    void saveRecipeAs();
    void uploadProfile();
    void downloadProfile();
    void rebuildPlot();
    void toggleDataCursor();
    void savePlotJpeg();
    void printProfilePlot();

    static qint32 swatchColor(const QPushButton* swatch);

protected:
    bool readyToClose() override;
    // Enter steps through a segment as Tab does: its last time field, its setpoint, the next.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void setSwatch(QPushButton* swatch, qint32 color);
    void pickColour(QPushButton* swatch);
    void applyPlotLook();
    void pageChanged(int page);
    bool writeRecipe(const QString& path);
    void setRecipeCaption();
    // Every value of the profile lies within its field, so none would be clipped on screen.
    bool fitsFields(const Profile& p) const;
    // The controller index of the selection, -1 with none.
    int selectedController() const;
};
