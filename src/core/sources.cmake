# Module objects: VexaObject and its records; the payload pool for lossless
# modules and the lending of payloads by reference; the packet queue that
# hands packets to a module's own thread; the private bookkeeping of links,
# packet deliveries and thread uses.
vexa_folder_files(
    SOURCES vexaobject.cpp vexapayloadpool.cpp vexapayloadlend.cpp vexapacketqueue.cpp vexalog.cpp vexadelivery.cpp vexalinktable.cpp vexathreaduses.cpp
    PUBLIC_HEADERS vexaobject.h VexaObject vexapayloadpool.h VexaPayloadPool vexapayloadlend.h VexaPayloadLend
                   vexapacketqueue.h VexaPacketQueue)
