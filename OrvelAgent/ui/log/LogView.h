// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPlainTextEdit>

#include <cstdint>
#include <optional>

namespace orvel {

class LogListModel;

/// Shows the log as selectable text in columns, one line per entry.
///
/// Scrolled to the top, it follows new entries. Scrolled down, or while text is selected, the
/// visible lines stay in place when entries are added, removed or filtered. Borrows the model,
/// which must outlive it.
class LogView final : public QPlainTextEdit {
    Q_OBJECT

public:
    /// In pixels. The column is wider if larger text needs it.
    static constexpr int categoryWidth = 66;

    explicit LogView(const LogListModel& model, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void insertRows(int first, int last);
    void removeRows(int first, int last);
    void reload();
    /// Sets the font and the column stops.
    void updateStyle();
    void rememberTopEntry();
    void restoreTopEntry();

    const LogListModel& model_;
    /// The number of the entry at the top. Empty while the view follows new entries.
    std::optional<std::uint64_t> topEntry_;
    /// True while the code, not the user, moves the scroll bar.
    bool isUpdating_ = false;
};

} // namespace orvel
