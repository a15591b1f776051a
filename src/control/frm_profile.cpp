#include "frm_profile.h"

#include "plant/comm_errors.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "plant/register_codec.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/plot.h"
#include "platform/settings_store.h"
#include "platform/window_parts.h"
#include "records/file_cipher.h"
#include "records/plot_commands.h"
#include "records/record_file.h"
#include "records/record_paths.h"
#include "security/login.h"
#include "security/rights.h"

#include <QAction>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTabWidget>
#include <QToolBar>
#include <QVBoxLayout>
#include <cmath>

namespace {
constexpr int kRecipeLines = 40;
constexpr int kRecipeTable = 56;
// Codes of -5 and below pass without a word, as they always have.
constexpr int kQuietCodes = -5;
constexpr int kProfileEnd = 17;
const QString kCaption = QStringLiteral("Profiler");
const QString kFilter = QStringLiteral("Recipe Files(*.rec)|*.rec");
const QString kSection = QStringLiteral("Profiler");
const QString kPleaseSelect = QStringLiteral("Please select profiler from dropdown list");

QString recipesFolder() {
    return gAppPath + QStringLiteral("/Recipes");
}

qint32 settingColour(const QString& key, qint32 fallback) {
    bool ok = false;
    const int value = getSetting(kSection, key, QString::number(fallback)).toInt(&ok);
    return ok ? value : fallback;
}
} // namespace

std::optional<QVector<quint16>> profileBlock(const Profile& profile) {
    QVector<quint16> block;
    for (const double setPoint : profile.setPoints) {
        const std::optional<quint16> word = wordOfTenths(setPoint);
        if (!word)
            return std::nullopt;
        block << *word;
    }
    // Hours and minutes are joined before the rounding.
    for (int s = 0; s < Profile::kSegments; ++s) {
        for (int part = 0; part < 2; ++part) {
            const double minutes = profile.segTimes[size_t(4 * s + 2 * part)] * 60 +
                                   profile.segTimes[size_t(4 * s + 2 * part + 1)];
            const std::optional<quint16> word = wordOfSigned(minutes);
            if (!word)
                return std::nullopt;
            block << *word;
        }
    }
    return block;
}

Profile profileFromBlock(const QVector<quint16>& block) {
    Profile profile;
    for (int s = 0; s < Profile::kSegments; ++s)
        profile.setPoints[size_t(s)] = tenthsOf(block.value(s));
    // A negative count splits as the controller's integer division does: -25 is 0 and -25.
    for (int k = 0; k < 2 * Profile::kSegments; ++k) {
        const int raw = signedWord(block.value(Profile::kSegments + k));
        profile.segTimes[size_t(2 * k)] = raw / 60;
        profile.segTimes[size_t(2 * k + 1)] = raw % 60;
    }
    return profile;
}

QStringList profileRecipeLines(const Profile& profile) {
    QStringList lines;
    for (const double value : profile.setPoints)
        lines << signedText(value);
    for (const double value : profile.segTimes)
        lines << signedText(value);
    return lines;
}

std::optional<Profile> parseProfileRecipe(const QStringList& lines) {
    if (lines.size() < kRecipeLines || lines.size() > kRecipeTable)
        return std::nullopt;
    // A damaged line reads as 0, as it always has.
    auto number = [&lines](int i) {
        bool ok = false;
        const double value = lines[i].trimmed().toDouble(&ok);
        return ok && std::isfinite(value) ? value + 0.0 : 0.0;
    };
    Profile profile;
    for (int s = 0; s < Profile::kSegments; ++s)
        profile.setPoints[size_t(s)] = number(s);
    for (int i = 0; i < 4 * Profile::kSegments; ++i)
        profile.segTimes[size_t(i)] = number(Profile::kSegments + i);
    return profile;
}

FrmProfile::FrmProfile(QWidget* parent) : ChildWindow(Life::Closes, kSection, parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("frmProfile"), kCaption);
    QWidget* body = widget();
    Toolbar1 = makeToolbar(body, Qt::ToolButtonIconOnly);
    ToolCommands button(Toolbar1, this);
    button(QStyle::SP_FileIcon, "New", "New Recipe", &FrmProfile::newRecipe);
    button(QStyle::SP_DialogOpenButton, "Open", "Open Recipe File", &FrmProfile::openRecipe);
    button(QStyle::SP_DialogSaveButton, "Save", "Save Recipe File", &FrmProfile::saveRecipe);
    button(QStyle::SP_DriveFDIcon, "Save As", "Save Recipe As", &FrmProfile::saveRecipeAs);
    button(QStyle::SP_FileDialogContentsView, "Cursor", "Data Cursor (enable/disable)",
           &FrmProfile::toggleDataCursor);
    button(QStyle::SP_DriveHDIcon, "Jpeg", "Save Plot as jpeg", &FrmProfile::savePlotJpeg);
    button(QStyle::SP_FileDialogDetailedView, "Print", "Print Plot", &FrmProfile::printProfilePlot);
    button(QStyle::SP_ArrowUp, "Upload", "Upload profile from control", &FrmProfile::uploadProfile);
    button(QStyle::SP_ArrowDown, "Download", "Download profile to control",
           &FrmProfile::downloadProfile);
    layout->addWidget(Toolbar1);

    auto* selectRow = new QHBoxLayout;
    selectRow->setContentsMargins(6, 4, 6, 4);
    selectRow->addWidget(new QLabel(QStringLiteral(" Select Controller For Profiling:"), body));
    ProfileCSelect = new QComboBox(body);
    ProfileCSelect->setObjectName(QStringLiteral("ProfileCSelect"));
    for (int c = 0; c < kControllerCount; ++c) {
        if (gControlEnabled[size_t(c)] && gControlType[size_t(c)] != K40Series)
            ProfileCSelect->addItem(gPvTag[size_t(c)], c);
    }
    ProfileCSelect->setCurrentIndex(-1);
    selectRow->addWidget(ProfileCSelect, 1);
    layout->addLayout(selectRow);

    SSTab1 = new QTabWidget(body);
    SSTab1->setObjectName(QStringLiteral("SSTab1"));
    auto* segments = new QWidget(SSTab1);
    auto* grid = new QGridLayout(segments);
    QWidget* previous = nullptr;
    for (int s = 0; s < Profile::kSegments; ++s) {
        auto* frame = new QGroupBox(QStringLiteral("Segment %1").arg(s + 1), segments);
        auto* form = new QGridLayout(frame);
        form->addWidget(new QLabel(QStringLiteral("H:M"), frame), 0, 1, 1, 2, Qt::AlignCenter);
        for (int part = 0; part < 2; ++part) {
            form->addWidget(
                new QLabel(part == 0 ? QStringLiteral("Ramp Time") : QStringLiteral("SoakTime"),
                           frame),
                1 + part, 0);
            for (int unit = 0; unit < 2; ++unit) {
                const int index = 4 * s + 2 * part + unit;
                auto* field = new QSpinBox(frame);
                field->setObjectName(QStringLiteral("segTime(%1)").arg(index));
                // Minutes may run past the hour, as a recipe may hold them: the controller
                // takes hours and minutes as one signed count, refused when it cannot fit.
                // Negative counts are allowed so that any block uploaded shows as it is.
                field->setRange(unit == 0 ? -546 : -32768, unit == 0 ? 546 : 32767);
                field->setAlignment(Qt::AlignRight);
                segTime[size_t(index)] = field;
                form->addWidget(field, 1 + part, 1 + unit);
                if (previous)
                    setTabOrder(previous, field);
                previous = field;
            }
        }
        form->addWidget(new QLabel(QStringLiteral("Setpoint"), frame), 3, 0);
        pSetPoint[size_t(s)] = new QDoubleSpinBox(frame);
        pSetPoint[size_t(s)]->setObjectName(QStringLiteral("pSetPoint(%1)").arg(s));
        pSetPoint[size_t(s)]->setDecimals(1);
        pSetPoint[size_t(s)]->setRange(-3276.8, 3276.7);
        pSetPoint[size_t(s)]->setAlignment(Qt::AlignRight);
        form->addWidget(pSetPoint[size_t(s)], 3, 1, 1, 2);
        // After a segment's last time field comes its setpoint, then the next segment.
        setTabOrder(previous, pSetPoint[size_t(s)]);
        previous->installEventFilter(this);
        pSetPoint[size_t(s)]->installEventFilter(this);
        previous = pSetPoint[size_t(s)];
        grid->addWidget(frame, s / 4, s % 4);
    }
    SSTab1->addTab(segments, QStringLiteral("Segments"));

    auto* plotPage = new QWidget(SSTab1);
    auto* plotLayout = new QHBoxLayout(plotPage);
    auto* plotColumn = new QGridLayout;
    ProfPlotx1 = new Plot(plotPage);
    ProfPlotx1->setObjectName(QStringLiteral("ProfPlotx1"));
    ProfPlotx1->addChannel();
    valueSlider = new QSlider(Qt::Vertical, plotPage);
    valueSlider->setObjectName(QStringLiteral("valueSlider"));
    DateSlider = new QSlider(Qt::Horizontal, plotPage);
    DateSlider->setObjectName(QStringLiteral("DateSlider"));
    for (QSlider* slider : {valueSlider, DateSlider})
        slider->setRange(0, 100);
    bindZoomSlider(DateSlider, ProfPlotx1, true, [this] { return keptXSpan; });
    bindZoomSlider(valueSlider, ProfPlotx1, false, [this] { return keptYSpan; });
    plotColumn->addWidget(ProfPlotx1, 0, 0);
    plotColumn->addWidget(valueSlider, 0, 1);
    plotColumn->addWidget(DateSlider, 1, 0);
    plotLayout->addLayout(plotColumn, 1);
    auto* controls = new QVBoxLayout;
    auto* look = new QFormLayout;
    auto swatchButton = [&](const char* name, const char* caption, const char* key,
                            qint32 fallback) {
        auto* swatch = new QPushButton(plotPage);
        swatch->setObjectName(QString::fromLatin1(name));
        swatch->setAutoDefault(false);
        setSwatch(swatch, settingColour(QString::fromLatin1(key), fallback));
        connect(swatch, &QPushButton::clicked, this, [this, swatch] { pickColour(swatch); });
        look->addRow(QString::fromLatin1(caption), swatch);
        return swatch;
    };
    iBgColor = swatchButton("iBgColor", "Background", "tbgColor", 0);
    iTxtColor = swatchButton("iTxtColor", "Text Color", "TtextColor", 16777215);
    iLineColor = swatchButton("iLineColor", "Line Color", "TlineColor", 255);
    iDotColor = swatchButton("iDotColor", "Dot Color", "Tdotcolor", 65535);
    XminorSet = new QSpinBox(plotPage);
    XminorSet->setObjectName(QStringLiteral("XminorSet"));
    XminorSet->setRange(0, 30);
    XminorSet->setValue(int(settingColour(QStringLiteral("TtimeMinor"), 7)));
    YminorSet = new QSpinBox(plotPage);
    YminorSet->setObjectName(QStringLiteral("YminorSet"));
    YminorSet->setRange(0, 30);
    YminorSet->setValue(int(settingColour(QStringLiteral("TdateMinor"), 3)));
    look->addRow(QStringLiteral("Time Minor"), XminorSet);
    look->addRow(QStringLiteral("Date Minor"), YminorSet);
    controls->addLayout(look);
    List1 = new QListWidget(plotPage);
    List1->setObjectName(QStringLiteral("List1"));
    List1->addItems({QStringLiteral("hh:nn:ss"), QStringLiteral("hh:nn:ss.zzz"),
                     QStringLiteral("m/d hh:nn:ss"), QStringLiteral("d mmm h:nn:ss am/pm"),
                     QStringLiteral("m/d/yy h:nn:ss am/pm"),
                     QStringLiteral("m/d/yyy h:nn:ss am/pm")});
    controls->addWidget(List1, 1);
    plotLayout->addLayout(controls);
    SSTab1->addTab(plotPage, QStringLiteral("Profile Plot"));
    connect(XminorSet, &QSpinBox::valueChanged, this, [this] { applyPlotLook(); });
    connect(YminorSet, &QSpinBox::valueChanged, this, [this] { applyPlotLook(); });
    connect(List1, &QListWidget::currentTextChanged, this,
            [this](const QString& format) { ProfPlotx1->setDateTimeFormat(format); });
    connect(SSTab1, &QTabWidget::currentChanged, this, &FrmProfile::pageChanged);
    layout->addWidget(SSTab1, 1);

    auto* bottom = new QHBoxLayout;
    bottom->setContentsMargins(6, 4, 6, 4);
    icurFile = new QLabel(body);
    icurFile->setObjectName(QStringLiteral("icurFile"));
    bottom->addWidget(icurFile, 1);
    CloseWindow = new QPushButton(QStringLiteral("Close"), body);
    CloseWindow->setObjectName(QStringLiteral("CloseWindow"));
    connect(CloseWindow, &QPushButton::clicked, this, &QWidget::close);
    bottom->addWidget(CloseWindow);
    layout->addLayout(bottom);

    ModProfRead =
        new PacedSequence(QStringLiteral("ModProfRead"), QStringLiteral("profReadTimer"), this);
    ModProfWrite =
        new PacedSequence(QStringLiteral("ModProfWrite"), QStringLiteral("profWriteTimer"), this);
    connect(ModProfRead, &PacedSequence::blockRead, this,
            [this](int, const QVector<quint16>& words) {
                setProfile(profileFromBlock(words));
                icurFile->setText(QStringLiteral("Profile upload from controller completed!"));
                recipeFile.clear();
                setWindowTitle(QStringLiteral("Profiler - Uploaded from controller"));
                rebuildPlot();
            });
    connect(ModProfWrite, &PacedSequence::writeComplete, this, [this] {
        icurFile->setText(QStringLiteral("Profile download completed!"));
        setWindowTitle(QStringLiteral("Profiler - ") + recipeFile);
    });
    // The status keeps its "Please Wait" and the fields stay as they were.
    connect(ModProfRead, &PacedSequence::failed, this, [](int code) {
        if (code > kQuietCodes)
            msgBox(QStringLiteral("Error during read of profile data.\nPlease check control and "
                                  "try again."),
                   MsgIcon::Critical);
    });
    connect(ModProfWrite, &PacedSequence::failed, this, [](int code) {
        if (code > kQuietCodes)
            msgBox(QStringLiteral("Error during download of profile data.\nPlease check control "
                                  "and try again."),
                   MsgIcon::Critical);
    });
    setProfile(Profile{});
    newRecipe();
    // Its place is kept beside the plot's look; at first large enough for all eight segments.
    restorePlacement({600, 600, 14100, 8100});
}

Profile FrmProfile::profile() const {
    Profile p;
    for (int s = 0; s < Profile::kSegments; ++s)
        p.setPoints[size_t(s)] = pSetPoint[size_t(s)]->value();
    for (int i = 0; i < 4 * Profile::kSegments; ++i)
        p.segTimes[size_t(i)] = segTime[size_t(i)]->value();
    return p;
}

void FrmProfile::setProfile(const Profile& p) {
    for (int s = 0; s < Profile::kSegments; ++s)
        pSetPoint[size_t(s)]->setValue(p.setPoints[size_t(s)]);
    for (int i = 0; i < 4 * Profile::kSegments; ++i)
        segTime[size_t(i)]->setValue(int(std::lround(p.segTimes[size_t(i)])));
}

int FrmProfile::selectedController() const {
    return ProfileCSelect->currentIndex() < 0 ? -1 : ProfileCSelect->currentData().toInt();
}

bool FrmProfile::fitsFields(const Profile& p) const {
    auto fits = [](const QAbstractSpinBox* box, double value) {
        const auto* whole = qobject_cast<const QSpinBox*>(box);
        const auto* real = qobject_cast<const QDoubleSpinBox*>(box);
        return whole ? value >= whole->minimum() && value <= whole->maximum()
                     : value >= real->minimum() && value <= real->maximum();
    };
    for (int s = 0; s < Profile::kSegments; ++s) {
        if (!fits(pSetPoint[size_t(s)], p.setPoints[size_t(s)]))
            return false;
    }
    for (int i = 0; i < 4 * Profile::kSegments; ++i) {
        if (!fits(segTime[size_t(i)], std::round(p.segTimes[size_t(i)])))
            return false;
    }
    return true;
}

void FrmProfile::setRecipeCaption() {
    setWindowTitle(QStringLiteral("Profiler - ") + fileBaseName(recipeFile));
}

void FrmProfile::newRecipe() {
    Profile fresh;
    fresh.setPoints.fill(32);
    setProfile(fresh);
    setWindowTitle(kCaption);
    recipeFile.clear();
    rebuildPlot();
}

void FrmProfile::openRecipe() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Open recipe file (.rec)");
    request.filter = kFilter;
    request.initialDirectory = recipesFolder();
    request.fileName = recipesFolder() + QStringLiteral("/Default.rec");
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    if (chosen.cancelled)
        return;
    // A damaged line reads as an empty one, and so as 0.
    // A value no field can show would be clipped without a word: such a recipe is refused.
    std::optional<Profile> recipe;
    if (!takePlainFile(chosen.path, kRecipeTable + 1, QStringLiteral("Recipe"),
                       [this, &recipe](const QStringList& lines) {
                           recipe = parseProfileRecipe(lines);
                           return recipe.has_value() && fitsFields(*recipe);
                       }))
        return;
    setProfile(*recipe);
    recipeFile = chosen.path;
    setRecipeCaption();
    rebuildPlot();
}

bool FrmProfile::writeRecipe(const QString& path) {
    QString why;
    if (!writeEncipheredLines(path, profileRecipeLines(profile()), &why)) {
        reportError(QStringLiteral("saveRecipe"), 75, why);
        return false;
    }
    return true;
}

void FrmProfile::saveRecipe() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    if (recipeFile.isEmpty()) {
        saveRecipeAs();
        return;
    }
    writeRecipe(recipeFile);
}

void FrmProfile::saveRecipeAs() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Save .rec Recipe file as?");
    request.filter = kFilter;
    request.defaultExtension = QStringLiteral(".rec");
    request.initialDirectory = recipesFolder();
    request.fileName = QStringLiteral("recipe.rec");
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (chosen.cancelled || !writeRecipe(chosen.path))
        return;
    recipeFile = chosen.path;
    setRecipeCaption();
}

void FrmProfile::uploadProfile() {
    if (gSimMode)
        return;
    const int c = selectedController();
    if (c < 0) {
        msgBox(kPleaseSelect, MsgIcon::Information);
        return;
    }
    if (msgBox(QStringLiteral("Upload profile from controller to PC?"), MsgIcon::Question,
               MsgButtons::YesNo, QStringLiteral("Upload Profile?")) != MsgAnswer::Yes)
        return;
    icurFile->setText(QStringLiteral("Uploading Profile From Controller, Please Wait!!"));
    ModProfRead->readBlock(c + 1, kProfileFirstRegister, kProfileRegisters);
}

void FrmProfile::downloadProfile() {
    if (gSimMode)
        return;
    if (!checkAccessWithLogin(Right::Profiler, windowTitle() + QStringLiteral(" - Download to ") +
                                                   QString::number(ProfileCSelect->currentIndex())))
        return;
    // The upload's title, as this question has always had.
    if (msgBox(QStringLiteral("Download profile from PC to controller?"), MsgIcon::Question,
               MsgButtons::YesNo, QStringLiteral("Upload Profile?")) != MsgAnswer::Yes)
        return;
    const int c = selectedController();
    if (c < 0) {
        msgBox(QStringLiteral("A profiler must be selected\nto upload/download profiles."),
               MsgIcon::Information);
        rebuildPlot();
        return;
    }
    // Stopped (0 or below) or at the end of its profile (17): anything else is running.
    const int state = gProfState[size_t(c)];
    if (!(state < 1 || state == kProfileEnd)) {
        msgBox(QStringLiteral("Profiler # ") + QString::number(c + 1) +
                   QStringLiteral(" is running. Profile download\nis not allowed while profile is "
                                  "active."),
               MsgIcon::Information);
        return;
    }
    const std::optional<QVector<quint16>> block = profileBlock(profile());
    if (!block) {
        // Refused before anything is written.
        msgBox(QStringLiteral("A segment time or setpoint is beyond what the controller can "
                              "hold."),
               MsgIcon::Critical);
        return;
    }
    icurFile->setText(QStringLiteral("Downloading data from PC to Profiler, Please Wait!"));
    ModProfWrite->writeBlock(c + 1, kProfileFirstRegister, *block);
    rebuildPlot();
}

bool FrmProfile::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            for (int s = 0; s < Profile::kSegments; ++s) {
                QWidget* next = nullptr;
                if (watched == segTime[size_t(4 * s + 3)])
                    next = pSetPoint[size_t(s)];
                else if (watched == pSetPoint[size_t(s)] && s + 1 < Profile::kSegments)
                    next = segTime[size_t(4 * (s + 1))];
                if (next) {
                    static_cast<QAbstractSpinBox*>(watched)->interpretText();
                    next->setFocus(Qt::TabFocusReason);
                    return true;
                }
            }
        }
    }
    return ChildWindow::eventFilter(watched, event);
}

qint32 FrmProfile::swatchColor(const QPushButton* swatch) {
    return swatch->property("color").toInt();
}

void FrmProfile::setSwatch(QPushButton* swatch, qint32 color) {
    swatch->setProperty("color", color);
    swatch->setStyleSheet(QStringLiteral("background-color: %1").arg(Plot::toColor(color).name()));
}

void FrmProfile::pickColour(QPushButton* swatch) {
    if (const std::optional<QColor> chosen =
            dialogs().chooseColour(Plot::toColor(swatchColor(swatch)))) {
        setSwatch(swatch, Plot::fromColor(*chosen));
        applyPlotLook();
    }
}

void FrmProfile::applyPlotLook() {
    Plot& plot = *ProfPlotx1;
    plot.setBackgroundColor(swatchColor(iBgColor));
    plot.setXColors(swatchColor(iTxtColor), swatchColor(iTxtColor));
    plot.setYColors(swatchColor(iTxtColor), swatchColor(iTxtColor));
    plot.setLegendColor(swatchColor(iTxtColor));
    plot.setChannelColor(0, swatchColor(iLineColor));
    plot.setChannelDots(0, swatchColor(iDotColor));
    plot.setMinorCounts(XminorSet->value(), YminorSet->value());
}

void FrmProfile::rebuildPlot() {
    Plot& plot = *ProfPlotx1;
    plot.removeAllChannels();
    const int channel = plot.addChannel();
    plot.setChannelTitle(channel, QStringLiteral("Setpoint"));
    applyPlotLook();
    DateSlider->setValue(0);
    valueSlider->setValue(0);
    const Profile p = profile();
    QDateTime t = currentDateTime();
    const QDateTime start = t;
    QVector<double> days{Plot::toDays(t)};
    QVector<double> values{0.0};
    double top = 0.0;
    for (int s = 0; s < Profile::kSegments; ++s) {
        const double ramp = p.segTimes[size_t(4 * s + 1)] + 60 * p.segTimes[size_t(4 * s)];
        t = t.addSecs(qint64(ramp * 60));
        days << Plot::toDays(t);
        values << p.setPoints[size_t(s)];
        const double soak = p.segTimes[size_t(4 * s + 3)] + 60 * p.segTimes[size_t(4 * s + 2)];
        t = t.addSecs(qint64(soak * 60));
        days << Plot::toDays(t);
        values << p.setPoints[size_t(s)];
        top = std::max(top, p.setPoints[size_t(s)]);
    }
    plot.setRingBufferSize(channel, int(days.size()));
    plot.addPoints(channel, days, values);
    const double whole = Plot::toDays(t) - Plot::toDays(start);
    keptXSpan = whole + whole * 0.05;
    keptYSpan = top > 0 ? top * 1.1 : 100.0;
    plot.setXSpan(keptXSpan);
    plot.setXMin(Plot::toDays(start));
    plot.setYMin(0);
    plot.setYSpan(keptYSpan);
    plot.setTitle(recipeFile.isEmpty()
                      ? QStringLiteral("Profile Plot (No Name)")
                      : QStringLiteral("Profile plot for file ") + fileBaseName(recipeFile));
}

void FrmProfile::pageChanged(int page) {
    if (page == 1) {
        rebuildPlot();
        return;
    }
    // Left: the plot is emptied until it is shown again.
    segTime[0]->setFocus();
    ProfPlotx1->removeAllChannels();
    ProfPlotx1->addChannel();
    ProfPlotx1->setYMin(0);
    ProfPlotx1->setYSpan(0);
    ProfPlotx1->setXSpan(0);
}

void FrmProfile::toggleDataCursor() {
    ProfPlotx1->setDataCursorVisible(!ProfPlotx1->dataCursorVisible());
}

void FrmProfile::savePlotJpeg() {
    ::savePlotJpeg(*ProfPlotx1, QStringLiteral("Profile Plot.jpg"),
                   QStringLiteral("Save profile plot jpeg as?"));
}

void FrmProfile::printProfilePlot() {
    printPlot(*ProfPlotx1, windowTitle());
}

bool FrmProfile::readyToClose() {
    saveSetting(kSection, QStringLiteral("TbgColor"), QString::number(swatchColor(iBgColor)));
    saveSetting(kSection, QStringLiteral("TtextColor"), QString::number(swatchColor(iTxtColor)));
    saveSetting(kSection, QStringLiteral("TlineColor"), QString::number(swatchColor(iLineColor)));
    saveSetting(kSection, QStringLiteral("Tdotcolor"), QString::number(swatchColor(iDotColor)));
    saveSetting(kSection, QStringLiteral("TtimeMinor"), QString::number(XminorSet->value()));
    saveSetting(kSection, QStringLiteral("TdateMinor"), QString::number(YminorSet->value()));
    return true;
}
