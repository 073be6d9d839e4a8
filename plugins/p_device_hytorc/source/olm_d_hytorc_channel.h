#ifndef OLM_D_HYTORC_CHANNEL_H
#define OLM_D_HYTORC_CHANNEL_H

#include "d_hytorc_channel.h"
#include "d_object_list_model.h"

// The maintenance panel's status channels, as a QML list model.
class OLM_DHytorcChannel : public DObjectListModel<DHytorcChannel>
{
    Q_OBJECT
public:
    explicit OLM_DHytorcChannel(QObject* parent = nullptr);
};

#endif // OLM_D_HYTORC_CHANNEL_H
