// Packet identifiers and command codes in force. They start at the values of
// link protocol L001 with command protocol A010; the protocol engine switches
// them when a receiver identifies itself otherwise. Everything that builds or
// recognises a packet reads them from here, never from literals.
#pragma once

#include <cstdint>

#include "link/framing.h"

namespace trekcom::link {

struct Packet_Ids {
    std::uint8_t PID_Ack_Byte = 6;
    std::uint8_t PID_Nak_Byte = 21;
    std::uint8_t PID_Command_Data = 10;
    std::uint8_t PID_Xfer_Cmplt = 12;
    std::uint8_t PID_Date_Time = 14;
    std::uint8_t PID_Position_Data = 17;
    std::uint8_t PID_Prx_Wpt_Data = 19;
    std::uint8_t PID_Records = 27;
    std::uint8_t PID_Rte_Hdr = 29;
    std::uint8_t PID_Rte_Wpt_Data = 30;
    std::uint8_t PID_Almanac_Data = 31;
    std::uint8_t PID_Trk_Data = 34;
    std::uint8_t PID_Wpt_Data = 35;
    std::uint8_t PID_Pvt_Data = 51;
    std::uint8_t PID_Rte_Link = 98;
    std::uint8_t PID_Trk_Hdr = 99;
    std::uint8_t PID_Unit_ID = 38;
    std::uint8_t PID_Voltages = 40;
    std::uint8_t PID_Display_Data = 69;
    std::uint8_t PID_Baud_Reply = 49;
    std::uint8_t PID_Sats = 114;
    std::uint8_t PID_Expanded_Packet = kExpanded_Id;
    std::uint8_t PID_Flightbook_Record = 134;
    std::uint8_t PID_Lap = 149;
    std::uint8_t PID_Protocol_Array = 253;
    std::uint8_t PID_Product_Rqst = 254;
    std::uint8_t PID_Product_Data = 255;

    std::uint8_t CMND_Reset_Transfer = 0;
    std::uint8_t CMND_Transfer_Alm = 1;
    std::uint8_t CMND_Transfer_Posn = 2;
    std::uint8_t CMND_Transfer_Prx = 3;
    std::uint8_t CMND_Transfer_Rte = 4;
    std::uint8_t CMND_Transfer_Time = 5;
    std::uint8_t CMND_Transfer_Trk = 6;
    std::uint8_t CMND_Transfer_Wpt = 7;
    std::uint8_t CMND_Turn_Off_Pwr = 8;
    std::uint8_t CMND_Start_Pvt_Data = 49;
    std::uint8_t CMND_Stop_Pvt_Data = 50;
    std::uint8_t CMND_Start_Async = 255;
    std::uint8_t CMND_Change_Baud = 48;
    std::uint8_t CMND_Transfer_Flightbook = 92;
    std::uint8_t CMND_Transfer_Lap = 117;
};

}  // namespace trekcom::link
