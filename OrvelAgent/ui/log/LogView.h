// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPlainTextEdit>

#include <cstdint>
#include <optional>

namespace orvel {

class LogListModel;

/// A log as text in columns, one line for each entry, to be selected and copied.
///
/// At the very top it shows what arrives. Further down, or while some of it is selected, what the
/// user looks at stays in its place, whatever comes, goes or is filtered out. Borrows the model,
/// which must outlive it.
class LogView final : public QPlainTextEdit {
    Q_OBJECT

public:
    /// At the usual text size; wider where the text is larger.
    static constexpr int categoryWidth = 66;

    explicit LogView(const LogListModel& model, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void insertRows(int first, int last);
    void removeRows(int first, int last);
    void reload();
    /// In the font, in columns.
    void updateLook();
    void notePlace();
    void keepPlace();

    const LogListModel& model_;
    /// The entry at the top of the view; none while the view follows the newest one.
    std::optional<std::uint64_t> place_;
    /// Scrolling is this object's doing, not the user's.
    bool isUpdating_ = false;
};

} // namespace orvel
