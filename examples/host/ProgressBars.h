#pragma once

#include <Console.h>

#include <UtilsLib/progress/IGlobalProgressManager.h>
#include <UtilsLib/progress/IProgressView.h>

#include <string>

/// The host's progress manager: shows the views of its observers as bars on the console. It does not ask by itself:
/// an observer's owner has it draw. Belongs to the console's thread.
class ProgressBars : public UtilsLib::IGlobalProgressManager
{
public:
    explicit ProgressBars(Console& console);

    void AddObserver(UtilsLib::ScopedProgressObserver& observer) override;
    void UpdateObserver(UtilsLib::ScopedProgressObserver& observer) override;
    /// The last state stays on the console.
    void RemoveObserver(UtilsLib::ScopedProgressObserver& observer) override;

private:
    Console& m_console;
};

/// "snapshot     [###...] 1,200 of 2,400 copying": the stage, end and current, and the sub-message. Without the middle
/// when there is nothing to show yet.
std::string BarText(const UtilsLib::IProgressView& view);
