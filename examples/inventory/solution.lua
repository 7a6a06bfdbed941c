-- A hazardous chemicals inventory: reads what is stored where, screens all of it, and lists what would reach farthest.
-- The facilities are made up. The chemicals' properties are published ones; chemicals.csv tells the source of each.

name = "Chemical inventory"
signature = "INVT"

window { title = "Inventory", width = 800, height = 600 }
menu { title = "Scripts", { "Start", key = "1" }, { "Farthest", key = "2" }, "Reload" }

field { table = "inventory", column = "chemical", script = "Chemical" }

local function load()
    for _, row in ipairs(host.csv("chemicals.csv")) do
        db:exec("INSERT INTO chemical VALUES (:name, :state, :level_of_concern, :factor_ambient, :factor_boiling, "
            .. ":factor_molten, :source)", row)
    end
    for _, row in ipairs(host.csv("inventory.csv")) do
        db:exec("INSERT OR IGNORE INTO facility (name, place) VALUES (:facility, :place)", row)
        db:exec("INSERT INTO inventory (facility, chemical, container, amount, unit, concentration, form, temperature, "
            .. "dike_sqft) SELECT id, :chemical, :container, :amount, :unit, :concentration, :form, :temperature, "
            .. ":dike_sqft FROM facility WHERE name = :facility", row)
    end
end

-- Screens the whole inventory and keeps the results.
function scripts.Screen()
    db:exec("DELETE FROM screening")
    local count = db:exec([[
        INSERT INTO screening (inventory, distance, metres)
        SELECT inventory, QUIL_External('VSTACalculatePlumeDistance', parameter),
               CAST(QUIL_External('VSTAGetPlumePoints', parameter) AS REAL)
        FROM release]])
    for row in db:rows("SELECT inventory, distance FROM screening WHERE distance LIKE 'ERROR%'") do
        error("the calculator refuses container " .. row.inventory .. ": " .. row.distance)
    end
    print(("%d containers in %d facilities screened, worst-case weather"):format(
        count, db:value("SELECT count(*) FROM facility")))
end

function scripts.Farthest()
    print(("\n%8s  %-28s  %-35s  %s"):format("miles", "chemical", "container", "facility"))
    for row in db:rows([[
            SELECT distance, chemical, amount || ' ' || iif(unit = 'KGS', 'kg', 'lb') || ' ' || container AS container,
                   facility.name AS facility
            FROM screening JOIN inventory ON inventory.id = screening.inventory
                 JOIN facility ON facility.id = inventory.facility
            ORDER BY metres DESC, inventory.id LIMIT 10]]) do
        print(("%8s  %-28s  %-35s  %s"):format(row.distance, row.chemical, row.container, row.facility))
    end
end

-- Runs at each click on a chemical; the second one of a double click shows where its properties come from.
function scripts.Chemical(record)
    clicked = record.chemical
    QUIL_External("MENU_SetMenuHandlingScript", "Scripts|Show source")
    QUIL_External("MENU_WatchForDoubleClick", clicked .. "|" .. clicked)
end

scripts["Show source"] = function()
    local chemical = QUIL_External("MENU_GetDoubleClickString")
    if chemical == "" then
        chemical = clicked or "Chlorine"
    end
    local source = db:value("SELECT source FROM chemical WHERE name = ?", chemical)
    QUIL_External("GLN1ShowMessage", chemical .. ": " .. (source or "no source is known"))
end

-- Forgets what was read and reads the files again.
function scripts.Reload()
    db:exec("DELETE FROM inventory; DELETE FROM facility; DELETE FROM chemical")
    load()
end

function scripts.Start()
    if db:value("SELECT count(*) FROM inventory") == 0 then
        load()
    end
    perform("Screen")
    perform("Farthest")
    if not host.desk then
        quit()  -- in a terminal there is nothing more to see
    end
end
