#pragma once

#include "plant/child_window.h"

#include <QStringList>
#include <QVector>
#include <optional>

class PacedSequence;
class QLabel;
class QMdiArea;
class QPushButton;
class QToolBar;
class RecordGrid;

// A setpoint recipe as its .spr file holds it, one line a value before encipherment: the 64
// setpoints in their signed text form, then the 64 ticks, 0 or 1.
struct SpRecipe {
    QVector<std::optional<double>> values; // nothing: a damaged line, an empty cell
    QVector<bool> ticked;
    bool operator==(const SpRecipe&) const = default;
};
QStringList spRecipeLines(const SpRecipe& recipe);
// Nothing for fewer lines than a recipe has or a setpoint that is text but no number; a damaged
// line deciphers empty and leaves its cell empty. A tick is any line that reads as 1.
std::optional<SpRecipe> parseSpRecipe(const QStringList& lines);

// "Single Setpoint Recipes": one setpoint for each K40 controller of the plant, kept as a .spr
// recipe and written to every ticked controller one after the other, after a signed login.
// Rows of profilers and of controllers not scanned are shaded and locked.
class FrmSingleSP : public ChildWindow {
    Q_OBJECT
public:
    enum Column { AddressColumn, WriteColumn, TagColumn, ValueColumn };
    static constexpr int kSetpointRegister = 1;

    explicit FrmSingleSP(QWidget* parent = nullptr);

    RecordGrid* spDataGrid = nullptr;
    QToolBar* Toolbar1 = nullptr;
    QPushButton* Command1 = nullptr;
    PacedSequence* ModSpRecipe = nullptr;
    QString recipeFile;

    QString statusText() const;
    bool rowLocked(int row) const;

    void newRecipe();
    void openRecipe();
    void saveRecipe();
    void saveRecipeAs();
    void printRecipe();
    void downloadRecipe();

    // The recipe's text as the file holds it, before encipherment: the values, then the ticks.
    QStringList recipeLines() const;
    // Fills the grid from those lines; false when they are not a recipe (too few, or a value
    // that is no number), the grid untouched then.
    bool applyRecipeLines(const QStringList& lines);

private:
    void setStatus(const QString& text);
    void setRecipeCaption();
    bool writeRecipe(const QString& path);
    // The word register 1 takes for a setpoint of this controller; nothing when it cannot.
    static std::optional<quint16> rawSetpoint(int row, double value);

    QLabel* m_status = nullptr;
    QVector<std::pair<int, quint16>> m_writeTable;
};
