-- Sends PING to a partner that runs, and prints what comes back. Run it with: quil run examples/partners/host
name = "Ping"

function scripts.Start()
    QUIL_External("GLN1SetHandledMessages", "HOLA|OKHI|PONG")
    QUIL_External("GLN1SetMessageHandlingScriptTo", "Read messages")
    QUIL_External("GLN1InitIAC")
    if QUIL_External("GLN1IsAppRunning", "GLN1") == "FALSE" then
        print("GLN1 does not run; waiting for its greeting")
    else
        ping("GLN1")
    end
end

function ping(partner)
    QUIL_External("GLN1SetParameter", "MSSG|PING")
    QUIL_External("GLN1SetParameter", "TEXT|Grüße")
    if QUIL_External("GLN1SendMessageTo", partner) == "AskUserToLaunch" then
        print(partner .. " is not there")
    end
end

scripts["Read messages"] = function()
    local message = QUIL_External("GLN1GetNextMessage")
    local sender = QUIL_External("GLN1GetParameter", "SIGN")
    print(message .. " from " .. sender .. ": " .. QUIL_External("GLN1GetParameter", "TEXT"))
    if message == "HOLA" then
        ping(sender)
    elseif message == "PONG" then
        quit()
    end
end
