#include "olm_d_hytorc_channel.h"

OLM_DHytorcChannel::OLM_DHytorcChannel(QObject* parent)
    : DObjectListModel<DHytorcChannel>(parent)
{
}
