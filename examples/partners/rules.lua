-- Answers of `quil partner GLN1 --answer rules.lua`, by message name: a table of parameters, a list of such tables, or a
-- function of the message that returns one. "*" answers all others.
return {
    PING = function(message)
        return { MSSG = "PONG", TEXT = message.TEXT or "" }
    end,
    MENU = { MSSG = "MHIT", ITEM = "1" },
    ["CHM?"] = { MSSG = "CHM!", ["CAS "] = "7664-41-7", NAME = "AMMONIA" },
}
