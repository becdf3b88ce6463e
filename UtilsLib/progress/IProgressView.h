#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/progress/Progress.h>

#include <string>

namespace UtilsLib
{

/// Progress as those see it who only show it: two counts in the worker's unit (bytes, files, steps), a free text and a
/// description. Any thread may ask at any time; answers of two calls can be of different moments.
class UTILSLIB_API IProgressView
{
public:
    /// Whether there is anything to show: false while the end is 0.
    virtual bool IsValid() const = 0;
    /// The count at which the work is done.
    virtual unsigned long long GetProgressEnd() const = 0;
    /// How much is done; greater than the end for a while when the end was lowered under it.
    virtual unsigned long long GetProgressCurrent() const = 0;
    /// The description, valid as long as what is viewed.
    virtual const Progress::Data& GetData() const = 0;
    /// A copy of the text of what is being done at the moment. Not const, on purpose: hosts
    /// implement it so.
    virtual std::string GetSubMessage() = 0;
    /// Nobody may look any more.
    virtual ~IProgressView() = default;
};

} // namespace UtilsLib
