#pragma once

#include <QKeySequence>
#include <QString>
#include <functional>
#include <vector>

class FrmMain;

// One line of the main window's menu bar. A command asks its right first (when it has one)
// and then runs its handler, which calls one entry function of its subsystem.
struct MenuEntry {
    enum Kind { Menu, Command, Mark, Separator };
    Kind kind;
    // Object name of the menu it sits in; empty for a menu of the bar itself.
    QString parent;
    QString name;
    QString caption;
    int right = -1;
    std::function<void(FrmMain&)> handler = {};
};

// The whole menu bar, in order.
const std::vector<MenuEntry>& mainMenuTable();

// Keys of the commands used all day, by item name; each key once.
const std::vector<std::pair<QString, QKeySequence>>& menuShortcuts();
