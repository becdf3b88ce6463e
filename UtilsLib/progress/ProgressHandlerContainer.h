#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/ThreadAnnotations.h>
#include <UtilsLib/progress/IProgressView.h>
#include <UtilsLib/progress/Progress.h>
#include <UtilsLib/progress/ProgressHandler.h>
#include <UtilsLib/threading/Lock.h>

#include <map>
#include <memory>
#include <string>

namespace UtilsLib
{

/// The handlers of a job's stages by id, and one view of the stage that is active: who shows the job watches one view
/// while it goes from stage to stage. Any thread may use it. Not copied.
///
/// Its handlers are fixed at construction and live as long as it does. Every operation takes the container's lock; a
/// view's operation takes the handler's while it holds that, never the other way round.
class UTILSLIB_API ProgressHandlerContainer : public IProgressView
{
public:
    /// A stage: its id, and the description that its handler carries.
    struct ProgressHandlerData
    {
        unsigned int id = 0; ///< not 0xFFFFFFFF, which stands for "no stage"
        Progress::Data data; ///< what the handler is made with
    };

    /// Makes a handler for each of the `count` stages at `stages`, which are copied; the last of those with the same id
    /// stays. A count of 0 or a null pointer makes an empty container. No stage is active.
    ProgressHandlerContainer(const ProgressHandlerData* stages, unsigned int count);
    /// No thread may use the container or one of its handlers any more.
    ~ProgressHandlerContainer() override;
    ProgressHandlerContainer(const ProgressHandlerContainer&) = delete;
    ProgressHandlerContainer& operator=(const ProgressHandlerContainer&) = delete;

    /// The handler of `id`; of an unknown id the container's default handler, which all unknown ids share. Its
    /// description is empty and it is not valid unless somebody updates it.
    ProgressHandler& GetProgressHandler(unsigned int id);
    /// The handler of the active stage, the default handler while none is active.
    ProgressHandler& GetActiveProgressHandler();
    /// The active stage's id; 0xFFFFFFFF while none is active.
    unsigned int GetActiveProgressHandlerId() const;
    /// Makes `id` the active stage, also when it is unknown: the views then show the default handler.
    void SetActiveProgressHandler(unsigned int id);
    /// No stage is active from now on.
    void ResetActiveProgressHandler();

    /// Whether the active stage's handler is valid; false while no stage is active.
    bool IsValid() const override;
    /// The active stage's end; 0 while no stage is active.
    unsigned long long GetProgressEnd() const override;
    /// The active stage's current count; 0 while no stage is active.
    unsigned long long GetProgressCurrent() const override;
    /// The active stage's description, the default handler's while no stage is active.
    const Progress::Data& GetData() const override;
    /// A copy of the active stage's sub-message, of the default handler's while no stage is active.
    std::string GetSubMessage() override;

private:
    friend class ScopedProgressState;

    /// Makes `id` the active stage and returns the id that was active.
    unsigned int ExchangeActiveId(unsigned int id);
    /// Makes `id` the active stage if it is `expected` now.
    void ReplaceActiveId(unsigned int expected, unsigned int id);
    /// `GetActiveProgressHandler` for those who only look.
    const ProgressHandler& ActiveView() const;

    mutable Lock m_lock;
    ProgressHandler m_default;
    std::map<unsigned int, std::shared_ptr<ProgressHandler>> m_handlers; // does not change after construction
    unsigned int m_activeId UTILSLIB_GUARDED_BY(m_lock);
};

} // namespace UtilsLib
